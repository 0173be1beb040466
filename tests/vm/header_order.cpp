// The class's header on its own first, then among the headers of libvirt and Xerces.
#include <kxlinhw/vmutils.h>

#ifdef VIR_LIBVIRT_H
#error "agents need not have libvirt's headers"
#endif

static_assert(sizeof(VMUtils) == 9 * sizeof(void*), "the members and nothing else");
static_assert(sizeof(_KVMInfo) == 408, "");
static_assert(sizeof(_VF) == 16, "");
static_assert(sizeof(_interfaceInfo) == 56, "");

int states_of(VMUtils& vm);
int states_of(VMUtils& vm) {
    int state = 0;
    unsigned char uuid[16] = {};
    return vm.getDomainState(vm.getDomainPtr(uuid), &state) + state;
}

#include <libvirt/libvirt.h>

#include <xercesc/parsers/XercesDOMParser.hpp>

virConnectPtr same_connection();
virConnectPtr same_connection() { return VMUtils::getConnection(); }

xercesc::XercesDOMParser* same_parser(VMUtils& vm);
xercesc::XercesDOMParser* same_parser(VMUtils& vm) { return vm.parser; }

const XMLCh* same_text(const VMUtils& vm);
const XMLCh* same_text(const VMUtils& vm) { return vm.busAttr; }
