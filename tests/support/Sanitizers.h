#pragma once

// Which of them this is built with: they bring an allocator of their own, and keep what others
// give back.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
#ifdef __SANITIZE_THREAD__
constexpr bool kThreadSanitizer = true;
#else
constexpr bool kThreadSanitizer = false;
#endif
constexpr bool kSanitizersAllocator = kAddressSanitizer || kThreadSanitizer;
