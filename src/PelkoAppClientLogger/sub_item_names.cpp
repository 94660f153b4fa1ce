#include "PelkoAppClientLogger/sub_item_names.h"

// Four names a row, after the code of the first.
// clang-format off
const char* const g_subItemName[kSubItemNameCount] = {
    /* 0x00 */ "", "AV(EXT)1", "AV(EXT)2", "AV(EXT)3",
    /* 0x04 */ "S-VIDEO", "Component1", "Component2", "PC",
    /* 0x08 */ "HDMI1", "HDMI2", "HDMI3", "HDMI4",
    /* 0x0C */ "CI+ ECP Fail", "CI+ ECP Empty", "WiFi 6 MAC", "Widevine",
    /* 0x10 */ "No Drelix", "Mismatch Drelix", "Miracast", "HDCP",
    /* 0x14 */ "EDID", "CI+", "Wired MAC", "WiFi MAC",
    /* 0x18 */ "BT MAC", "RPMB", "UHDCP", "WiFi MAC(Wifi Pelko)",
    /* 0x1C */ "WiFi MAC(No Wifi Module)", "BT MAC(BT Pelko)",
               "BT MAC(No BT Module)", "WIFI6 MAC(No Module)",
    /* 0x20 */ "NO SSID", "PW Fail", "Scan Fail", "Activation Fail",
    /* 0x24 */ "Operation Fail", "Signal Quality",
               "WiFi Throughput(Wifi Pelko)", "WiFi Throughput(No Wifi Module)",
    /* 0x28 */ "WiFi Throughput(Wifi Insp)", "VDRV-OFF", "VDRV-OVP", "LED OPEN",
    /* 0x2C */ "LED SHORT", "LED DRIVER IC OTP", "", "",
    /* 0x30 */ "BLE", "WOWLAN", "BLE & WOWLAN", "BLE(BT Pelko)",
    /* 0x34 */ "BLE(No BT Module)", "WOWLAN(Wifi Pelko)",
               "WOWLAN(No Wifi Module)", "BT Insp(BT Pelko)",
    /* 0x38 */ "BT Insp(No BT Module)", "WiFi Insp(Wifi Pelko)",
               "WiFi Insp(No Wifi Module)", "WiFi Insp(Wifi Throughput)",
    /* 0x3C */ "Not support WiFi Pelko", "WiFi Insp(Wifi5 Failure)", "WiFi Insp(Wifi6 Failure)", "",
    /* 0x40 */ "CPU PLL MIN VAL", "CPU PLL MIN ERROR", "CPU PLL MAX VAL", "CPU PLL MAX ERROR",
    /* 0x44 */ "GRA PLL MIN VAL", "GRA PLL MIN ERROR", "GRA PLL MAX VAL", "GRA PLL MAX ERROR",
    /* 0x48 */ "PULL0 PLL MIN VAL", "PULL0 PLL MIN ERROR",
               "PULL0 PLL MAX VAL", "PULL0 PLL MAX ERROR",
    /* 0x4C */ "PULL1 PLL MIN VAL", "PULL1 PLL MIN ERROR",
               "PULL1 PLL MAX VAL", "PULL1 PLL MAX ERROR",
    /* 0x50 */ "Vx1 PLL MIN VAL", "Vx1 PLL MIN ERROR", "Vx1 PLL MAX VAL", "Vx1 PLL MAX ERROR",
    /* 0x54 */ "DP PLL MIN VAL", "DP PLL MIN ERROR", "DP PLL MAX VAL", "DP PLL MAX ERROR",
    /* 0x58 */ "FRC PLL MIN VAL", "FRC PLL MIN ERROR", "FRC PLL MAX VAL", "FRC PLL MAX ERROR",
    /* 0x5C */ "CORE PLL MIN VAL", "CORE PLL MIN ERROR", "CORE PLL MAX VAL", "CORE PLL MAX ERROR",
    /* 0x60 */ "DDR0 PLL MIN VAL", "DDR0 PLL MIN ERROR", "DDR0 PLL MAX VAL", "DDR0 PLL MAX ERROR",
    /* 0x64 */ "DDR1 PLL MIN VAL", "DDR1 PLL MIN ERROR", "DDR1 PLL MAX VAL", "DDR1 PLL MAX ERROR",
    /* 0x68 */ "DDR2 PLL MIN VAL", "DDR2 PLL MIN ERROR", "DDR2 PLL MAX VAL", "DDR2 PLL MAX ERROR",
    /* 0x6C */ "DDR3 PLL MIN VAL", "DDR3 PLL MIN ERROR", "DDR3 PLL MAX VAL", "DDR3 PLL MAX ERROR",
    /* 0x70 */ "DDR4 PLL MIN VAL", "DDR4 PLL MIN ERROR", "DDR4 PLL MAX VAL", "DDR4 PLL MAX ERROR",
    /* 0x74 */ "USIT PLL MIN VAL", "USIT PLL MIN ERROR", "USIT PLL MAX VAL", "USIT PLL MAX ERROR",
    /* 0x78 */ "OCM PLL MIN VAL", "OCM PLL MIN ERROR", "OCM PLL MAX VAL", "OCM PLL MAX ERROR",
    /* 0x7C */ "AUD0 PLL MIN VAL", "AUD0 PLL MIN ERROR", "AUD0 PLL MAX VAL", "AUD0 PLL MAX ERROR",
    /* 0x80 */ "AUD1 PLL MIN VAL", "AUD1 PLL MIN ERROR", "AUD1 PLL MAX VAL", "AUD1 PLL MAX ERROR",
    /* 0x84 */ "EMAC PLL MIN VAL", "EMAC PLL MIN ERROR", "EMAC PLL MAX VAL", "EMAC PLL MAX ERROR",
    /* 0x88 */ "EMAC PLL MIN VAL", "EMAC PLL MIN ERROR", "EMAC PLL MAX VAL", "EMAC PLL MAX ERROR",
    /* 0x8C */ "CPU TMCB", "GPU TMCB", "CORE TMCB", "TMCB Total",
    /* 0x90 */ "CPU IDS", "GPU IDS", "CORE IDS", "IDS Total",
    /* 0x94 */ "Temperature MIN", "Temperature MAX", "Voltage MIN", "Voltage MAX",
    /* 0x98 */ "Not Support", "IC Temp T1 (Soc 1s)", "IC Temp T2 (Soc 10s)", "Not Defined",
    /* 0x9C */ "", "", "", "",
    /* 0xA0 */ "", "", "", "",
    /* 0xA4 */ "form_factor", "platform", "series", "Lot Info",
    /* 0xA8 */ "Wired MAC", "Chip ID 1", "Chip ID 2", "Platform",
    /* 0xAC */ "S/W Version", "S/W Model", "Product Year", "",
    /* 0xB0 */ "", "onboot_status", "ddr_r_channel", "vstep3_r_val",
    /* 0xB4 */ "ddr_r_left", "ddr_r_right", "ddr_r_center", "ddr_w_channel",
    /* 0xB8 */ "vstep3_w_val", "ddr_w_left", "ddr_w_right", "ddr_w_center",
    /* 0xBC */ "emmc_strcen_tmin", "emmc_strcen_tmax", "emmc_strcen_tcen", "emmc_strcen_margin",
    /* 0xC0 */ "emmc_life_time", "", "Wireless MAC", "BT MAC",
    /* 0xC4 */ "Wired MAC", "Wifi6 MAC", "", "Sound AMP",
    /* 0xC8 */ "amp_ic_status", "Main Serial No", "Drelix Key Status", "SoC SubJect Uid",
    /* 0xCC */ "Host Subject Model", "Host Subject Uid", "", "",
    /* 0xD0 */ "Serdes Default EQ", "Serdes Sweep EQ", "Vima-T DDR Vref", "Vima-O Temp",
    /* 0xD4 */ "Vima-T Temp", "ddr_r_channel", "vstep3_r_val", "ddr_r_left",
    /* 0xD8 */ "ddr_r_right", "ddr_r_center", "ddr_w_channel", "vstep3_w_val",
    /* 0xDC */ "ddr_w_left", "ddr_w_right", "ddr_w_center", "tcon_pmic",
    /* 0xE0 */ "No Tcon Data", "Basic Tcon Data", "Derived Tcon Data", "SPI Write Error",
    /* 0xE4 */ "API Call Error", "Cell Auto Detect Off", "Panel Type Error", "Main Version",
    /* 0xE8 */ "Sub Version", "", "", "",
    /* 0xEC */ "", "", "", "",
    /* 0xF0 */ "", "", "", "",
    /* 0xF4 */ "", "", "", "",
    /* 0xF8 */ "", "", "", "",
    /* 0xFC */ "Test Name 1", "Test Name 2", "Data",
};
// clang-format on

namespace fa
{

const char* SubItemName(unsigned char code)
{
    return code < kSubItemNameCount ? g_subItemName[code] : "";
}

}  // namespace fa
