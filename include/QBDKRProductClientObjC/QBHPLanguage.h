#pragma once

#import <Foundation/Foundation.h>
#include <stdint.h>

// Marks that older compilers cannot read: whether an object may be nil, and the objects of a
// container.
#if __has_feature(nullability)
#define QBHP_NULLABLE _Nullable
#define QBHP_NONNULL _Nonnull
#else
#define QBHP_NULLABLE
#define QBHP_NONNULL
#endif
#if __has_feature(objc_generics)
#define QBHP_OF(...) <__VA_ARGS__>
#else
#define QBHP_OF(...)
#endif

// Where clang-format is off, a blank keeps the name of an argument out of the selector.

#define QBHP_EXPORT __attribute__((visibility("default")))
