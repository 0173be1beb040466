// An agent that describes a function itself, and cannot.
#include "vm/fake_host.hpp"

using test::host;
using testing::ElementsAre;

int VMUtils::getXMLDescForVF(_VF, char**) { return 5; }

namespace {

struct OwnDeviceText : test::VmTest {};

TEST_F(OwnDeviceText, ThatCannotBeMadeEndsTheAttachment) {
    test::FakeDomain& domain = host().add({.name = "one", .id = 4, .uuid = test::numbered_uuid(1)});
    std::string uuid = test::digits(domain.uuid);
    test::printed([&] {
        EXPECT_EQ(vm().attachVFToVM(4, {}), 1);
        EXPECT_EQ(vm().attachVFToVM(uuid.data(), {}), 1);
    });
    EXPECT_THAT(
        host().logged(), ElementsAre(
                             "AttachVFToVM: Could not get domain configuration",
                             "AttachVFToVM: Could not get domain configuration"));
    EXPECT_TRUE(host().attached.empty());
}

}  // namespace
