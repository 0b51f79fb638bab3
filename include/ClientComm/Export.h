#pragma once

// Marks the public surface. Everything else is compiled with hidden visibility.
#define QBDKR_EXPORT __attribute__((visibility("default")))
