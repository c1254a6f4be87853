// Linked into every program of a sanitized build: the default options of the
// leak checker, so that ctest, test discovery and manual runs all use the
// suppressions of tests/lsan.supp. LSAN_OPTIONS still overrides them.
extern "C" char const* __lsan_default_options() {
    return "suppressions=" BRIMORA_LSAN_SUPPRESSIONS ":print_suppressions=0";
}
