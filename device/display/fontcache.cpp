// Compiled into every program that draws if the leak sanitizer is on: fontconfig, which cairo uses, never
// frees its configuration.
extern "C" const char* __lsan_default_suppressions();

const char* __lsan_default_suppressions() {
    return "leak:libfontconfig\n";
}
