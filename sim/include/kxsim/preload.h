/* Functions of libkxsim.so in addition to the calls that it replaces: a test that is linked with
   the library attaches hosts to its own process with them. A process that was started with
   KXSIM_ROOT set is on that host without any call. */
#ifndef KXSIM_PRELOAD_H
#define KXSIM_PRELOAD_H

#ifdef __cplusplus
extern "C" {
#endif

/* Attach the host whose session is in the directory `root` to this process, in place of the
   previous host. Returns 0; or an errno when the session cannot be mapped, and then no host is
   attached. */
int kxsim_attach(const char* root);

/* Return to the real machine. Does nothing when no host was attached. */
void kxsim_detach(void);

/* Until the matching resume, the calling thread is on the real machine; its calls are not counted
   and do not fail by rules. Calls may be nested. */
void kxsim_pause(void);
void kxsim_resume(void);

/* Whether a fault rule makes this allocation fail; call is "malloc", "calloc" or "realloc", caller
   an address in the code that allocates. For programs whose allocator replaces that of the library
   (such as a sanitizer's). */
int kxsim_allocation_fails(const char* call, const void* caller);

#ifdef __cplusplus
}
#endif

#endif
