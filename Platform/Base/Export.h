#pragma once

// Everything is compiled with hidden visibility; what carries this mark is the public surface.
#define QBDKR_EXPORT __attribute__((visibility("default")))
