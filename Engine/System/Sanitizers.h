// Whether a sanitizer watches the process: it reserves terabytes, and has words of its own for crashes.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OXBEAM_SANITIZED 1
#elif defined(__has_feature)  // as clang says it
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OXBEAM_SANITIZED 1
#endif
#endif
