/* Virtual machines: the class VMUtils lists the libvirt domains of this host, changes their run
   state, finds the adapters' virtual functions (VFs), and attaches VFs and bridge interfaces to
   domains or detaches them.

   An agent does not need the headers of libvirt and Xerces. It may include them before or after
   this header. libvirt and Xerces are loaded when the first object is made or the first connection
   is opened. When they, or the private library libkxlinhw-machines.so beside this one, are missing,
   every member answers as it does without a connection or a document, and the next call tries
   again. Functions of libvirt that the program itself defines are called instead of libvirt's.

   One connection to the hypervisor serves the whole process. It is opened at the first use, for
   libvirt's default URI (LIBVIRT_DEFAULT_URI sets another one) with libvirt's default
   authentication, and is never closed. When libvirtd ends or restarts, the connection does not
   change and every later call of libvirt on it fails, as each member describes; virsh connects to
   the new libvirtd. To reconnect, an agent must restart itself. SIGPIPE is blocked in the calling
   thread during each call of libvirt, and a signal that the call raised is discarded. Domain
   handles belong to libvirt: the class keeps none and releases none, not even those that it looks
   up itself.

   /usr/bin/virsh reports run states and makes some changes; the library starts it through the
   agent's command runner (BridgeUtils of <kxlinhw/host.h>). Names in commands are not quoted when
   they contain only letters, digits and "_.+:@%,/-"; other names are quoted. When virsh could read
   a domain's name as an id (a number from 0 up, as strtol reads it) or as a UUID (8-4-4-4-12
   hexadecimal digits), the command contains the domain's UUID instead. Failures are logged by
   KxLogger::KestrixLogMsg with module 2 and type 4, and progress is printed on standard output,
   each as described below. listVFsForVM and listInterfacesForVM write the file "domain.xml" in the
   working directory and leave it there. It must be a regular file that the agent may write, not a
   symbolic link; when it cannot be written completely, there is no document.

   Members that redefine a domain (attachVFToVM, dettachVFFromVM, dettachInterfaceFromVM) use the
   description that libvirt returns without secrets: the new definition has no passwords of
   graphical consoles (VNC, SPICE). The agent must set them again.

   Unless it says otherwise, a member returns 0 for success and 1 for failure, and an unexpected
   null pointer is a failure. Everything that a member returns was allocated with malloc or calloc;
   the caller frees it. When memory runs out, members may throw std::bad_alloc or Xerces'
   OutOfMemoryException; the object stays usable. Only one thread at a time may use the class. */
#ifndef KXLINHW_VMUTILS_H
#define KXLINHW_VMUTILS_H

#ifndef __cplusplus
#error "vmutils.h describes a C++ class"
#endif

#include <kxlinhw/export.h>

/* libvirt's handles and the DOM parser of Xerces, by name only. */
typedef struct _virConnect virConnect;
typedef virConnect* virConnectPtr;
typedef struct _virDomain virDomain;
typedef virDomain* virDomainPtr;

namespace xercesc_3_2 {
class XercesDOMParser;
}

/* One domain of listVMs; 408 bytes. */
struct _KVMInfo {
    int32_t id;             /* libvirt's id of an active domain; -1 for an inactive domain */
    unsigned char uuid[16]; /* raw bytes */
    char name[256];         /* without a NUL when the name fills it */
    char osType[128];       /* the same */
    int32_t state;          /* KxRunState */
};

/* Run states, with libvirt's numbers. */
enum KxRunState {
    KX_VM_NO_STATE = 0, /* unknown */
    KX_VM_RUNNING = 1,
    KX_VM_BLOCKED = 2, /* never returned; accepted where a domain must run */
    KX_VM_PAUSED = 3,
    KX_VM_SHUT_OFF = 5
};

/* Operations of VMStateOperation, with the states in which each is allowed. */
enum KxStateOperation {
    KX_VM_OP_START = 0,     /* shut off or none: start; paused: resume */
    KX_VM_OP_SUSPEND = 1,   /* running or blocked */
    KX_VM_OP_SHUT_DOWN = 2, /* running or blocked */
    KX_VM_OP_REBOOT = 3,    /* any state except none */
    KX_VM_OP_RESUME = 4     /* paused */
};

/* One PCI function; 16 bytes. */
struct _VF {
    int32_t pciDomain;
    int32_t bus;
    int32_t slot;
    int32_t function;
};

/* A PCI bus with functions of the maker, in the list of getCardsInfo. */
struct KxCardBus {
    int32_t pciDomain;
    int32_t bus;
    struct KxCardBus* next; /* null at the end */
};

/* A VF of a domain, in the list of getVFsFromDomainInfo. */
struct KxVFNode {
    struct _VF vf;
    struct KxVFNode* next; /* null at the end */
};

/* One network interface of a domain; 56 bytes. A text that is too long for its field continues in
   the fields after it, which are filled later, and is cut at the end of the record. */
struct _interfaceInfo {
    unsigned char mac[6]; /* raw bytes */
    char type[10];        /* "bridge", "network", ... */
    char bridge[10];      /* the bridge of the host that it is attached to */
    char targetDev[10];   /* its name on the host, such as "vnet0" */
    char model[10];       /* "virtio", ...; "N/A" when the description has no model */
    char alias[10];       /* libvirt's alias of the device, such as "net0" */
};

class KX_EXPORT VMUtils {
public:
    /* Initialise Xerces and the names that the members need. Never fails: an error of Xerces is
       printed as "XML toolkit initialization error: TEXT", and without Xerces the data are null. */
    VMUtils();

    /* Release the names. The parser, the connection and Xerces itself stay, because other objects
       and the agent use them. */
    ~VMUtils();

    VMUtils(const VMUtils&) = delete; /* each object releases its own names */
    VMUtils& operator=(const VMUtils&) = delete;

    /* ---- Connection, domains and their run state ---- */

    /* The connection to the hypervisor; opens it when there is none yet. Throws the int -128, and
       nothing else, when it cannot be opened ("No connection to hypervisor" is printed; the next
       call tries again) or when libvirt cannot return its URI ("Failed to get URI for hypervisor
       connection" is printed; the connection is kept, and the next call returns it). */
#if __cplusplus < 201703L
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated"
    static virConnectPtr getConnection() throw(int);
#pragma GCC diagnostic pop
#else
    static virConnectPtr getConnection();
#endif

    /* The domain with a UUID of 16 raw bytes; null when there is no such domain or no
       connection. */
    virDomainPtr getDomainPtr(unsigned char* uuid);

    /* List all domains: the active ones in the order of libvirt's ids, then the defined ones that
       are not active. *records becomes a new array and *count its length; neither changes when the
       domains cannot be counted. When an active domain has disappeared meanwhile, 1 is returned
       with the records that were filled so far. Prints "Attempting to connect to hypervisor" and
       each inactive domain's name. Logs "ListVMs: ..." on failure. */
    int listVMs(_KVMInfo** records, int* count);

    /* The domain's run state (KX_VM_RUNNING, _PAUSED or _SHUT_OFF) as "virsh domstate" reports it.
       Returns 0, or -1 without changing *state. */
    int getDomainState(virDomainPtr domain, int* state);

    /* Apply an operation (KxStateOperation) to a domain when its state allows it.
       uuid: 32 hexadecimal digits without hyphens; it is printed. time: for a suspension, a decimal
       number without an effect; the operation is refused when errno is EINVAL or ERANGE after its
       conversion, even when an earlier call set errno. Returns the operation's result, 0 for an
       unknown operation, 1 when refused ("VMStateOperation: ..." is logged). */
    int VMStateOperation(char* uuid, int operation, char* time);

    /* Operations on one domain, whatever its state. They print and log nothing. VMResume and
       VMSuspend report whether virsh succeeded; VMReboot and VMShutdown only ask the guest. */
    int VMLaunch(virDomainPtr domain);
    int VMResume(virDomainPtr domain);
    int VMSuspend(virDomainPtr domain, long long time);
    int VMReboot(virDomainPtr domain);
    int VMShutdown(virDomainPtr domain);

    /* ---- Virtual functions of the host and of domains ---- */

    /* The buses of the maker's PCI functions as lspci lists them: one node for each run of
       functions that share PCI domain and bus. The hexadecimal numbers of lspci are read as decimal
       numbers ("0a" is 0, "10" is ten). Null when there is no bus or lspci fails. The caller frees
       each node. */
    KxCardBus* getCardsInfo();

    /* The VFs that a domain's description in a file assigns to it: PCI host devices on one of the
       buses of getCardsInfo. Each is printed twice as "\n BUS:SLOT.FUNCTION\n", in decimal. Null
       when there is no VF or no document ("some thing went wrong in getting document node" is
       printed). Throws std::runtime_error "empty XML document" when the document has no root
       element. The caller frees each node. */
    KxVFNode* getVFsFromDomainInfo(char* path);

    /* The VFs of a domain. *vfs becomes a new array; its length is not returned, only printed as
       "The number of VFS N", followed by each VF as above. Returns 0, or -1: no domain
       ("ListVFsForVM: Invalid VMID" is logged), no description or no memory. When "domain.xml"
       cannot be written, it prints the line of a missing document and returns no VF. Throws as
       getVFsFromDomainInfo does. */
    int listVFsForVM(virDomainPtr domain, _VF**& vfs);

    /* The same for the domain of a UUID text (VMStateOperation), which is printed. */
    int listVFsForVM(char* uuid, _VF** vfs);

    /* The same for an active domain's id. Id 0 lists the VFs of this host instead, with lspci,
       whose hexadecimal numbers are read as decimal numbers up to the first letter; the result is
       their number, or 1 when lspci fails. -1 without a connection ("ListVFsForVM:
       LibVirtConnection Failed" is logged). */
    int listVFsForVM(int id, _VF** vfs);

    /* ---- Attaching virtual functions to domains and detaching them ---- */

    /* libvirt's description of a VF as a host device: a text of one line in a new buffer of 200
       bytes. Returns 1 only when text is null. */
    int getXMLDescForVF(_VF vf, char** text);

    /* Attach a VF to an active domain (given by its id or UUID text), now and for its later starts:
       the domain is redefined from its live description. A failed redefinition is not reported.
       Prints "AttachVFToVM: VM ID: N" or "AttachVFToVM: UUID: TEXT"; logs "AttachVFToVM: ..." on
       failure, which leaves the domain unchanged. */
    int attachVFToVM(int id, _VF vf);
    int attachVFToVM(char* uuid, _VF vf);

    /* Remove a VF from a domain's persistent definition; an active domain keeps it until its next
       start. All other bytes of the definition do not change, except console passwords (see above).
       Prints "dettachVFFromVM: VM ID: N" or "dettachVFFromVM: UUID: TEXT" and the words of the host
       devices that it reads; logs "DettachVFFromVM: ..." on failure. */
    int dettachVFFromVM(int id, _VF vf);
    int dettachVFFromVM(char* uuid, _VF vf);

    /* ---- Network interfaces of domains, on bridges of the host ---- */

    /* Attach an interface on a bridge to an active domain with "virsh attach-interface". Refused
       for ids of more than 9 characters. Logs virsh's output when it does not report success; logs
       nothing when virsh fails. */
    int attachBrdgToVM(int id, char* bridge);

    /* The same without the agent's command runner, so that virsh prints on standard output. Only
       info.bridge is used. Refused for ids of more than 4 characters. Logs nothing. */
    int attachInterfaceToVM(int id, _interfaceInfo info);

    /* Remove, from a domain's persistent definition, the first interface whose description contains
       info's type, bridge and targetDev anywhere (every description contains an empty text). An
       active domain keeps it until its next start. The definition is made from the live
       description. Logs "DeleteVNETFromVM: ..." on failure. */
    int dettachInterfaceFromVM(int id, _interfaceInfo info);

    /* List an active domain's interfaces: *list becomes a new array and *count its length; neither
       changes on failure. Logs "ListInterfaces: ..." on failure. Throws std::runtime_error "empty
       XML document" when libvirt's description has no root element. */
    int listInterfacesForVM(int id, _interfaceInfo** list, int* count);

    /* An interface as an XML element, in a new buffer of 500 bytes. The model is left out when it
       is empty or "default". Returns 1 for a MAC address of zeros. */
    int getXMLDescForInterface(_interfaceInfo info, char** text);

    /* ---- Data: names as Xerces texts, and the parser of descriptions ---- */

    char16_t* domainTag;    /* "domain" */
    char16_t* hostdevTag;   /* "hostdev" */
    char16_t* sourceTag;    /* "source" */
    char16_t* addressTag;   /* "address" */
    char16_t* domainAttr;   /* "domain" */
    char16_t* busAttr;      /* "bus" */
    char16_t* slotAttr;     /* "slot" */
    char16_t* functionAttr; /* "function" */
    xercesc_3_2::XercesDOMParser* parser;

    /* For the agent: null at first, never used by the class. */
    static VMUtils* ctrl;
};

#endif
