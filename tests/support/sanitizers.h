// INKWEAVE_ASAN is defined when this program is built with AddressSanitizer: GCC says so with a macro,
// clang with a feature test.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define INKWEAVE_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define INKWEAVE_ASAN 1
#endif
#endif
