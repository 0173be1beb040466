// A hypervisor with one domain, and the commands of the host, whose texts a fuzz target fills.
// Include it in one file of a program: it defines libvirt's calls and the agent's services.
#pragma once

#include <kxlinhw/host.h>
#include <kxlinhw/vmutils.h>
#include <libvirt/libvirt.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace fuzz {

struct FedHypervisor {
    std::string description;  // of the domain
    std::string output;       // of every command
    int command_result = 0;
    std::string defined;  // what the domain was redefined as
};

inline FedHypervisor fed_hypervisor;

inline VMUtils& vm() {
    static VMUtils* const object = new VMUtils;  // Xerces outlives it
    return *object;
}

inline char fed_handle;

}  // namespace fuzz

extern "C" {

virConnectPtr virConnectOpenAuth(const char*, virConnectAuthPtr, unsigned int) {
    return reinterpret_cast<virConnectPtr>(&fuzz::fed_handle);
}

char* virConnectGetURI(virConnectPtr) { return strdup("fed:///system"); }

virDomainPtr virDomainLookupByID(virConnectPtr, int) {
    return reinterpret_cast<virDomainPtr>(&fuzz::fed_handle);
}

virDomainPtr virDomainLookupByUUID(virConnectPtr, const unsigned char*) {
    return reinterpret_cast<virDomainPtr>(&fuzz::fed_handle);
}

const char* virDomainGetName(virDomainPtr) { return "fed"; }

// Inactive descriptions are never released by contract: those belong to the target.
char* virDomainGetXMLDesc(virDomainPtr, unsigned int flags) {
    std::string& description = fuzz::fed_hypervisor.description;
    return flags == VIR_DOMAIN_XML_INACTIVE ? description.data() : strdup(description.c_str());
}

virDomainPtr virDomainDefineXML(virConnectPtr, const char* xml) {
    fuzz::fed_hypervisor.defined = xml;
    return reinterpret_cast<virDomainPtr>(&fuzz::fed_handle);
}

int virDomainCreate(virDomainPtr) { return 0; }
int virDomainReboot(virDomainPtr, unsigned int) { return 0; }
int virDomainShutdown(virDomainPtr) { return 0; }

}  // extern "C"

BridgeUtils* BridgeUtils::ctrl = nullptr;

int BridgeUtils::getOutput(std::string, std::string& output) {
    output = fuzz::fed_hypervisor.output;
    return fuzz::fed_hypervisor.command_result;
}

void KxLogger::KestrixLogMsg(ModName, LogType, const char*, ...) {}
