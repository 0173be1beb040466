// The library's calls of libvirt, answered from the host's domains and written to the journal.
#include <libvirt/libvirt.h>
#include <libvirt/virterror.h>

#include <algorithm>
#include <cstring>

#include "vm/allocator.hpp"
#include "vm/fake_host.hpp"

using test::FakeDomain;
using test::FakeHost;
using test::host;

namespace {

char connection_object;
const virConnectPtr kConnection = reinterpret_cast<virConnectPtr>(&connection_object);

void note(const std::string& entry) {
    host().journal.push_back(entry);
    if (host().on_libvirt) {
        host().on_libvirt();
    }
}

bool overruled(const char* function) { return host().results.contains(function); }

int result_of(const char* function, int own) {
    const auto found = host().results.find(function);
    return found == host().results.end() ? own : found->second;
}

FakeDomain* fake_of(virDomainPtr domain) { return reinterpret_cast<FakeDomain*>(domain); }

std::string name_of(virDomainPtr domain) {
    return domain == nullptr ? "(null)" : fake_of(domain)->name;
}

template <class Match>
virDomainPtr look_up(const char* function, Match match) {
    if (overruled(function)) {
        return nullptr;
    }
    auto& domains = host().domains;
    const auto found = std::find_if(domains.begin(), domains.end(), match);
    return found == domains.end() ? nullptr : test::handle(*found);
}

int count(bool running) {
    return static_cast<int>(std::count_if(
        host().domains.begin(), host().domains.end(),
        [running](const FakeDomain& domain) { return (domain.id != -1) == running; }));
}

char* watched_copy(const std::string& text) {
    char* const copy = strdup(text.c_str());
    test::watch(copy);
    return copy;
}

}  // namespace

extern "C" {

virConnectPtr virConnectOpenAuth(const char* name, virConnectAuthPtr auth, unsigned int flags) {
    note(
        std::string("virConnectOpenAuth ") + (name == nullptr ? "default" : name) +
        (auth == virConnectAuthPtrDefault ? " default " : " other ") + std::to_string(flags));
    return overruled("virConnectOpenAuth") ? nullptr : kConnection;
}

char* virConnectGetURI(virConnectPtr connection) {
    note("virConnectGetURI");
    EXPECT_EQ(connection, kConnection);
    if (overruled("virConnectGetURI")) {
        return nullptr;
    }
    char* const uri = watched_copy("fake:///system");
    host().given_texts.push_back(uri);
    return uri;
}

int virConnectClose(virConnectPtr) {
    note("virConnectClose");
    return 0;
}

int virDomainFree(virDomainPtr) {
    note("virDomainFree");
    return 0;
}

int virConnectNumOfDomains(virConnectPtr connection) {
    note("virConnectNumOfDomains");
    EXPECT_EQ(connection, kConnection);
    return result_of("virConnectNumOfDomains", count(true));
}

int virConnectNumOfDefinedDomains(virConnectPtr connection) {
    note("virConnectNumOfDefinedDomains");
    EXPECT_EQ(connection, kConnection);
    return result_of("virConnectNumOfDefinedDomains", count(false));
}

int virConnectListDomains(virConnectPtr connection, int* ids, int maxids) {
    note("virConnectListDomains " + std::to_string(maxids));
    EXPECT_EQ(connection, kConnection);
    if (overruled("virConnectListDomains")) {
        return result_of("virConnectListDomains", 0);
    }
    int came = 0;
    for (const FakeDomain& domain : host().domains) {
        if (domain.id != -1 && came < maxids) {
            ids[came++] = domain.id;
        }
    }
    return came;
}

int virConnectListDefinedDomains(virConnectPtr connection, char** names, int maxnames) {
    note("virConnectListDefinedDomains " + std::to_string(maxnames));
    EXPECT_EQ(connection, kConnection);
    if (overruled("virConnectListDefinedDomains")) {
        return result_of("virConnectListDefinedDomains", 0);
    }
    int came = 0;
    for (const FakeDomain& domain : host().domains) {
        if (domain.id == -1 && came < maxnames) {
            names[came] = watched_copy(domain.name);
            host().given_texts.push_back(names[came++]);
        }
    }
    return came;
}

virDomainPtr virDomainLookupByID(virConnectPtr connection, int id) {
    note("virDomainLookupByID " + std::to_string(id));
    EXPECT_EQ(connection, kConnection);
    return look_up("virDomainLookupByID", [id](const FakeDomain& domain) {
        return id > 0 && domain.id == id && !domain.listed_only;
    });
}

virDomainPtr virDomainLookupByName(virConnectPtr connection, const char* name) {
    note(std::string("virDomainLookupByName ") + name);
    EXPECT_EQ(connection, kConnection);
    return look_up("virDomainLookupByName", [name](const FakeDomain& domain) {
        return domain.name == name && !domain.listed_only;
    });
}

virDomainPtr virDomainLookupByUUID(virConnectPtr connection, const unsigned char* uuid) {
    test::Uuid wanted;
    std::memcpy(wanted.data(), uuid, wanted.size());
    note("virDomainLookupByUUID " + test::digits(wanted));
    EXPECT_EQ(connection, kConnection);
    return look_up("virDomainLookupByUUID", [&wanted](const FakeDomain& domain) {
        return domain.uuid == wanted;
    });
}

const char* virDomainGetName(virDomainPtr domain) {
    note("virDomainGetName " + name_of(domain));
    return overruled("virDomainGetName") ? nullptr : fake_of(domain)->name.c_str();
}

int virDomainGetUUID(virDomainPtr domain, unsigned char* uuid) {
    note("virDomainGetUUID " + name_of(domain));
    if (overruled("virDomainGetUUID")) {
        return result_of("virDomainGetUUID", 0);
    }
    std::memcpy(uuid, fake_of(domain)->uuid.data(), 16);
    return 0;
}

char* virDomainGetOSType(virDomainPtr domain) {
    note("virDomainGetOSType " + name_of(domain));
    if (overruled("virDomainGetOSType")) {
        return nullptr;
    }
    char* const text = watched_copy(fake_of(domain)->os_type);
    host().given_texts.push_back(text);
    return text;
}

int virDomainCreate(virDomainPtr domain) {
    note("virDomainCreate " + name_of(domain));
    return result_of("virDomainCreate", 0);
}

int virDomainReboot(virDomainPtr domain, unsigned int flags) {
    note("virDomainReboot " + name_of(domain) + " " + std::to_string(flags));
    return result_of("virDomainReboot", 0);
}

int virDomainShutdown(virDomainPtr domain) {
    note("virDomainShutdown " + name_of(domain));
    return result_of("virDomainShutdown", domain == nullptr ? -1 : 0);
}

char* virDomainGetXMLDesc(virDomainPtr domain, unsigned int flags) {
    note("virDomainGetXMLDesc " + name_of(domain) + " " + std::to_string(flags));
    if (overruled("virDomainGetXMLDesc")) {
        return nullptr;
    }
    char* const text = watched_copy(flags == 2 ? fake_of(domain)->inactive : fake_of(domain)->live);
    host().given_texts.push_back(text);
    return text;
}

int virDomainAttachDevice(virDomainPtr domain, const char* xml) {
    note("virDomainAttachDevice " + name_of(domain));
    host().attached.emplace_back(xml == nullptr ? "(null)" : xml);
    return result_of("virDomainAttachDevice", xml == nullptr ? -1 : 0);
}

virDomainPtr virDomainDefineXML(virConnectPtr connection, const char* xml) {
    note("virDomainDefineXML");
    EXPECT_EQ(connection, kConnection);
    host().defined.emplace_back(xml);
    host().define_arguments.push_back(const_cast<char*>(xml));
    return overruled("virDomainDefineXML") ? nullptr : test::handle(host().domains.front());
}

}  // extern "C"
