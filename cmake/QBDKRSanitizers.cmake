# Sanitizers apply to everything that is built, tests included: no report is lost between two
# libraries.
if(QBDKR_SANITIZERS)
  add_compile_options(-fsanitize=${QBDKR_SANITIZERS} -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=${QBDKR_SANITIZERS})
endif()
if(QBDKR_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
