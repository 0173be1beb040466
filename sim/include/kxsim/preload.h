/* What libkxsim.so answers beside the calls it stands in for: a test that links the library puts
   hosts under its own process with these. A process that was started with KXSIM_ROOT set is on
   that host without calling anything. */
#ifndef KXSIM_PRELOAD_H
#define KXSIM_PRELOAD_H

#ifdef __cplusplus
extern "C" {
#endif

/* Put the host whose session lives in the directory `root` under this process, in place of the one
   that was there. Returns 0; an errno when the session cannot be mapped, and then no host is. */
int kxsim_attach(const char* root);

/* Put the real machine back. Maps nothing and changes nothing when no host was attached. */
void kxsim_detach(void);

/* From here to the matching resume, the calling thread is on the real machine and its calls are
   neither counted nor made to fail. Nests. */
void kxsim_pause(void);
void kxsim_resume(void);

/* Whether a fault rule wants this allocation to fail; call is "malloc", "calloc" or "realloc",
   caller an address in the code that allocates. For programs whose allocator stands in front of
   the library's own (a sanitizer's). */
int kxsim_allocation_fails(const char* call, const void* caller);

#ifdef __cplusplus
}
#endif

#endif
