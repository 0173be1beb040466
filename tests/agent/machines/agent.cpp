// An agent that uses machines and nothing else: prints what the members of VMUtils answer.
#include <kxlinhw/vmutils.h>

#include <cstdio>
#include <cstdlib>

int main() {
    VMUtils vm;
    std::printf("names %s\n", vm.domainTag == nullptr ? "missing" : "made");
    try {
        std::printf("connection %s\n", VMUtils::getConnection() == nullptr ? "null" : "open");
    } catch (int thrown) {
        std::printf("thrown %d\n", thrown);
    }
    _KVMInfo* records = nullptr;
    int count = -1;
    std::printf("listVMs %d\n", vm.listVMs(&records, &count));
    std::printf("count %d\n", count);
    std::free(records);
    std::printf("attachVFToVM %d\n", vm.attachVFToVM(1, {0, 3, 1, 2}));
    std::printf("dettachInterfaceFromVM %d\n", vm.dettachInterfaceFromVM(1, {}));
    char bridge[] = "br0";
    std::printf("attachBrdgToVM %d\n", vm.attachBrdgToVM(1, bridge));
    _VF* vfs = nullptr;
    std::printf("listVFsForVM %d\n", vm.listVFsForVM(1, &vfs));
    char path[] = "description.xml";
    std::printf(
        "getVFsFromDomainInfo %s\n", vm.getVFsFromDomainInfo(path) == nullptr ? "none" : "some");
    int state = 0;
    std::printf("getDomainState %d\n", vm.getDomainState(nullptr, &state));
    std::printf("VMReboot %d\n", vm.VMReboot(nullptr));
    std::printf("VMShutdown %d\n", vm.VMShutdown(nullptr));
}
