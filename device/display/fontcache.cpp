// Compiled into every program that draws, when it is built with the leak sanitizer: fontconfig, with which
// cairo finds its fonts, keeps what it has read of its configuration until the process ends.
extern "C" const char* __lsan_default_suppressions();

const char* __lsan_default_suppressions() {
    return "leak:libfontconfig\n";
}
