// For a program that leaves a thread and some memory behind, on purpose: the sanitizers ask for their options here.

extern "C" [[gnu::visibility("default")]] const char* __asan_default_options();
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_options();

extern "C" [[gnu::visibility("default")]] const char* __asan_default_options() {
    return "detect_leaks=0";
}

extern "C" [[gnu::visibility("default")]] const char* __tsan_default_options() {
    return "report_thread_leaks=0";
}
