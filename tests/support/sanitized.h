// cSanitized: whether a sanitizer watches this build. Tests that repeat a kill at one moment after the other, or handle
// very many files, do so less often then: a program that is ten times as slow meets the same moments.
#ifndef KESTOVA_TESTS_SANITIZED_H
#define KESTOVA_TESTS_SANITIZED_H

#if defined(KESTOVA_SANITIZED)
inline constexpr bool cSanitized = true;
#else
inline constexpr bool cSanitized = false;
#endif

#endif
