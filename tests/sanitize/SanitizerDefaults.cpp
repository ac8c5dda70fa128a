// Default settings of the sanitizers, compiled into every binary of the
// sanitizer build (the daemon and the test programs alike), so a daemon that a
// test spawns checks exactly what the test itself checks, whatever the
// environment passes on.

extern "C" {

// Leaks are checked at exit; the rest makes any finding fatal and readable.
const char* __asan_default_options() {
  return "detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1:"
         "check_initialization_order=1:strict_init_order=1";
}

const char* __ubsan_default_options() {
  return "print_stacktrace=1:halt_on_error=1";
}

// The factory allocates the monitors once and nothing deletes them: they live
// until the process ends, by design. What they own hangs off them and is
// reported as indirect; both are expected at exit. A leak during a tick does
// not have the factory on its allocation stack and is still reported.
const char* __lsan_default_suppressions() {
  return "leak:halvexd::configureMonitors\n";
}

}  // extern "C"
