// The interface description that the generated binding carries.
#include <fa_api/automation_api_binding.h>
#include <gtest/gtest.h>

#include <string>

namespace
{

std::string Describe(GDBusArgInfo** arguments, GDBusAnnotationInfo** annotations)
{
    std::string text = annotations != nullptr ? "ANNOTATED (" : "(";
    for (; arguments != nullptr && *arguments != nullptr; ++arguments) {
        text += (text.back() == '(' ? "" : ", ") + std::string((*arguments)->name) + " " +
                (*arguments)->signature +
                ((*arguments)->annotations != nullptr ? " ANNOTATED" : "");
    }
    return text + ")";
}

TEST(BusContractTest, DescriptionHasTheContractsOrderAndNoMore)
{
    const GDBusInterfaceInfo* info = automation_proxy_interface_info();
    std::string text = std::string(info->name) + Describe(nullptr, info->annotations) + "\n";
    for (GDBusMethodInfo** method = info->methods; *method != nullptr; ++method) {
        text += (*method)->name + Describe((*method)->in_args, (*method)->annotations) + " -> " +
                Describe((*method)->out_args, nullptr) + "\n";
    }
    for (GDBusSignalInfo** signal = info->signals; *signal != nullptr; ++signal) {
        text += (*signal)->name + Describe((*signal)->args, (*signal)->annotations) + "\n";
    }
    EXPECT_EQ(text,
              "org.kavra.tv.automationservice()\n"
              "SendRS232Ack(pType i, pLen i, pData au) -> (ret (i))\n"
              "SendMessageByExUart(pLen i, pData au) -> (ret (i))\n"
              "SendRjpData(pLen i, pData au) -> (ret (i))\n"
              "ExecuteCommand(data0 i, data1 i) -> (ret (i))\n"
              "ExecuteCommandWithData(data0 i, data1 i, data au, len i) -> (ret (i))\n"
              "GetEpProtocolData() -> (data au, ret (i))\n"
              "GetRjpProtocolData() -> (data au, ret (i))\n"
              "GetSsProtocolData() -> (data au, ret (i))\n"
              "CloseExUart() -> (ret (i))\n"
              "ChangeBaudRateExUart(bdrate i) -> (ret (i))\n"
              "ChangePacketLengthSerialSource(len i) -> (ret (i))\n"
              "CopyLogToUsb() -> (ret (i))\n"
              "rjp_handler(rjp_description s)\n"
              "ep_handler(ep_description s)\n"
              "ss_handler(ss_description s)\n");
    EXPECT_EQ(info->properties, nullptr);
}

}  // namespace
