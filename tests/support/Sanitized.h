// QUORVEL_SANITIZED is defined in builds with the address or thread sanitizer, whose allocators and
// shadow memory rule some checks out.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QUORVEL_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QUORVEL_SANITIZED 1
#endif
#endif
