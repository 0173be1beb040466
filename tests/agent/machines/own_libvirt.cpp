// Functions of libvirt that a program, a preloaded library or another libvirt.so.0 defines.
#include <kxlinhw/vmutils.h>

#include <cstdio>

namespace {

char object;

}  // namespace

extern "C" {

virConnectPtr virConnectOpenAuth(const char*, void*, unsigned) {
    std::puts("own virConnectOpenAuth");
    return reinterpret_cast<virConnectPtr>(&object);
}
char* virConnectGetURI(virConnectPtr) {
    std::puts("own virConnectGetURI");
    return &object;
}
int virConnectNumOfDomains(virConnectPtr) {
    std::puts("own virConnectNumOfDomains");
    return 0;
}
int virConnectNumOfDefinedDomains(virConnectPtr) {
    std::puts("own virConnectNumOfDefinedDomains");
    return 0;
}
int virConnectListDomains(virConnectPtr, int*, int) {
    std::puts("own virConnectListDomains");
    return 0;
}
int virConnectListDefinedDomains(virConnectPtr, char**, int) {
    std::puts("own virConnectListDefinedDomains");
    return 0;
}
virDomainPtr virDomainLookupByID(virConnectPtr, int id) {
    std::printf("own virDomainLookupByID %d\n", id);
    return reinterpret_cast<virDomainPtr>(&object);
}
int virDomainAttachDevice(virDomainPtr, const char* text) {
    std::printf("own virDomainAttachDevice %s\n", text);
    return 0;
}
char* virDomainGetXMLDesc(virDomainPtr, unsigned flags) {
    std::printf("own virDomainGetXMLDesc %u\n", flags);
    return nullptr;
}
int virDomainShutdown(virDomainPtr) {
    std::puts("own virDomainShutdown");
    return 0;
}

}  // extern "C"
