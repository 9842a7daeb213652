// Linked into the filter only under the sanitizers. A CUPS scheduler passes no ASAN_OPTIONS or
// LSAN_OPTIONS to the filters it runs, so what the leak checker must know is built in here.
//
// libcups 2.4 leaks the options array of a preset it builds for a PPD's cache (in cupsMarkOptions, for a
// PPD with cupsPrintQuality presets); ppdClose does not free it. The suppression names the libcups function
// that makes the allocation, and malloc stacks are unwound fully (libcups has no frame pointers), so the
// match is exact and no leak of ours is hidden.
extern "C" [[gnu::visibility("default"), gnu::used]] const char* __lsan_default_suppressions() {
  return "leak:_ppdCacheCreateWithPPD\n";
}
extern "C" [[gnu::visibility("default"), gnu::used]] const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}
