// Measures one deployment of a tree, or changes of one key of a property list, and prints the
// samples. The references run in other programs.

#include <cstdlib>
#include <string_view>

#include "ClientComm/SwitchFile.h"
#include "Platform/Files/FileTree.h"
#include "Samples.h"

namespace {

using namespace qbdkr::bench;

void copy(const char* from, const char* to) {
  print("ours", timeOf([&] {
          if (qbdkr::copyItem(from, to)) fail("the tree was not copied");
        }));
}

void changeKey(const char* file, const char* value) {
  print("ours", timeOf([&] {
          if (!qbdkr::writeSwitch(file, qbdkr::SwitchForm::propertyList, "TipsEnable",
                                  std::string_view(value) == "1", qbdkr::SwitchWrite::always)) {
            fail("the key was not changed");
          }
        }));
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc == 4 ? argv[1] : "";
  if (what == "copy") {
    copy(argv[2], argv[3]);
  } else if (what == "change-key") {
    changeKey(argv[2], argv[3]);
  } else {
    fail("usage: FileBench copy FROM TO | change-key FILE 0|1");
  }
}
