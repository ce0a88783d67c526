// Which sanitizer the build has: gcc and clang tell it in different ways.
#ifndef VELT_TESTS_FAULTS_SANITIZERS_H
#define VELT_TESTS_FAULTS_SANITIZERS_H

#ifdef __has_feature
#define VELT_ADDRESS_SANITIZER __has_feature(address_sanitizer)
#define VELT_THREAD_SANITIZER __has_feature(thread_sanitizer)
#else
#ifdef __SANITIZE_ADDRESS__
#define VELT_ADDRESS_SANITIZER 1
#else
#define VELT_ADDRESS_SANITIZER 0
#endif
#ifdef __SANITIZE_THREAD__
#define VELT_THREAD_SANITIZER 1
#else
#define VELT_THREAD_SANITIZER 0
#endif
#endif

#endif
