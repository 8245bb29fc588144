#pragma once

/// What LeakSanitizer passes over, in every program that includes this: newlocale() of the C library, which
/// never frees the search path that it makes of LOCPATH. Knowing the function takes llvm-symbolizer.
extern "C" __attribute__((used, visibility("default"))) inline const char* __lsan_default_suppressions() {
    return "leak:argz_add_sep\n";
}
