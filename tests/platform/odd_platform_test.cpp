// A platform that answers what a profile cannot say: the profile is as near as it can be, and each
// loss is told. The functions here take the place of the simulated platform's.
#include "support/trace.h"
#include "support/whole_platform.h"

int system_info_get_value_string(int key, char** value)
{
    *value = key == 128 ? nullptr : strdup("text");
    return key == 128 ? 0 : 5;
}

int bt_adapter_get_chip_version(int*)
{
    return -61;
}

int ve_start_local_dimming_test(unsigned char, unsigned int* value)
{
    *value = 0x2A;
    return 1;
}

int factory_get_option_string_data(int, char* buffer, unsigned int* length)
{
    std::memset(buffer, 'o', 128);
    *length = 128;
    return 3;
}

int ProfileMain(int argc, char** argv);  // of fa-platform-profile, which has it as its main

TEST(OddPlatform, IsToldAsNearAsAProfileCan)
{
    char name[] = "fa-platform-profile";
    char* words[] = {name, nullptr};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(ProfileMain(1, words), 3);
    const std::string profile = testing::internal::GetCapturedStdout();
    for (const std::string part :
         {"[system_info_string]\n0=text\n# 128: the query fails with 0\n# 133: the query fails "
          "with 5\n",
          "# chip_version: the query fails with -61\n", "\n7=0x0000002A\n8=0x0000002A\n"}) {
        EXPECT_THAT(profile, testing::HasSubstr(part));
    }
    EXPECT_THAT(profile, testing::EndsWith("\n254=" + std::string(127, 'o') + "\n"));
    std::stringstream losses;
    losses << std::ifstream(TESTS "platform/losses.txt").rdbuf();
    EXPECT_TRUE(Same(losses.str(), testing::internal::GetCapturedStderr()));
}
