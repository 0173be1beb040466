/* Services that an agent supplies to the library: its logger, its shell-command runner and its
   wrapper of the maker's command-line tool. The library has weak default definitions of all of
   them, so it loads in any process; definitions in the agent always replace them.

   Every function that an agent defines in place of one of the library's must return or throw an
   exception. It must not leave by longjmp: this would skip the library's clean-up, and data that
   are cached for one call would be used in later calls. */
#ifndef KXLINHW_HOST_H
#define KXLINHW_HOST_H

#ifndef __cplusplus
#error "host.h describes C++ services; C agents need only mx_cmd_wraper"
#endif

#include <kxlinhw/export.h>

#include <string>

/* The part of the system that a log message comes from. */
enum ModName : int32_t {
    KX_MOD_GENERAL = 0,
    KX_MOD_INVENTORY = 1,
    KX_MOD_VM = 2 /* every message of VMUtils */
};

/* The severity of a log message. */
enum LogType : int32_t {
    KX_LOG_DEBUG = 0,
    KX_LOG_INFO = 1,
    KX_LOG_ERROR = 2, /* messages about module parameters */
    KX_LOG_WARNING = 3,
    KX_LOG_FAILURE = 4 /* every message of VMUtils */
};

class KX_EXPORT KxLogger {
public:
    /* Log one message; format and values as for printf. The default writes one line to standard
       error: "libkxlinhw: LEVEL: [module N] MESSAGE". */
    static void KestrixLogMsg(ModName module, LogType type, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

    /* The module of a service number (4: files of module parameters, 10: iWARP settings). The
       default returns the number itself. */
    static ModName MapSVCToModName(int service);
};

class KX_EXPORT BridgeUtils {
public:
    BridgeUtils() {}

    /* Run a shell command and store its standard output in output. 0 means that it ran and
       succeeded. The command must run with LC_ALL=C: the library searches the output of virsh and
       lspci for English words, which other locales translate. The default returns the command's
       exit status, 128 plus the signal that ended it, or -1 when it could not be started or its
       output could not be read; it also works for agents that ignore SIGCHLD. */
    int getOutput(std::string command, std::string& output);

    /* The runner that the library uses; null until getControl creates one. */
    static BridgeUtils* ctrl;

    static BridgeUtils* getControl() {
        if (!ctrl) {
            ctrl = new BridgeUtils;
        }
        return ctrl;
    }
};

/* Run the maker's command-line tool with count arguments (arguments[0] is "zfabtool"; the vector is
   not null-terminated) and store its output in the management buffer: write at g_MXdataBuffer +
   g_MXdataBufferOffset, advance the offset, enlarge the buffer with ReallocMXbuffer. The default
   runs "zfabtool" from PATH without a shell. Returns 0 on success. */
extern "C" KX_EXPORT int mx_cmd_wraper(int count, char** arguments);

#endif
