#include "automation_interface/local_sets.h"

namespace fa
{

const char* const kLocalSets[kLocalSetCount] = {
    /*  0 */ kNoLocalSet, "US",         "KOR",        "SD_MEXICO",
    /*  4 */ "SD_CANADA", kNoLocalSet,  "EU",         "EU_ITALY",
    /*  8 */ "EU_GER",    "EU_BENELUX", "EU_SPAIN",   "EU_UK",
    /* 12 */ "CIS_CA_MS", "CIS_RUSSIA", "CIS_UKR",    "EU_TURKEY",
    /* 16 */ "EU_AFRICA", "EU_ALGERIA", "EU_S_AFR",   "CIS_CA_UZ",
    /* 20 */ "EU_RS_AFR", "EU_ISRAEL",  kNoLocalSet,  "AD_AU2",
    /* 24 */ "AD_NZ2",    "AD_SIN2",    "EA_VIET",    "EA_THAI",
    /* 28 */ "EA_INA",    "EA_CHINA",   "EA_INDIA",   "EA_SRI",
    /* 32 */ "EA_NEPAL",  "EA_BANGLA",  "EA_IRAN",    "EA_EGYPT",
    /* 36 */ "EA_LIBYA",  "EA_M_ASIA",  "EA_SAUDI",   "EA_PAK",
    /* 40 */ "EA_E_ASIA", "EA_AFR",     "EA_S_AFR",   "EA_MAL",
    /* 44 */ "EA_PHI",    "EA_UAE",     "ED_IRAN",    "ED_VIET",
    /* 48 */ "ED_INA",    "ED_INDIA",   "ED_THAI",    "ED_PHI",
    /* 52 */ "ED_EGYPT",  "ED_LIBYA",   "ED_M_ASIA",  "ED_SAUDI",
    /* 56 */ "ED_PAK",    "ED_AFR",     "ED_MYAN",    "ED_MAL",
    /* 60 */ "ED_UAE",    "ED_M_ASIA2", "ED_ALGERIA", "COLOMBIA",
    /* 64 */ "TAIWAN",    "CHI_DTV",    "HKG_DTV",    "CUBA_DTV",
    /* 68 */ kNoLocalSet, "BRA_DTV",    "CHILE_DTV",  "PERU_DTV",
    /* 72 */ "ARG_DTV",   "URU_DTV",    "PAR_DTV",    "SA_ATV",
    /* 76 */ "SELA",      kNoLocalSet,  "SA_BOLIVIA", "ECUADOR",
    /* 80 */ "PANAMA",    kNoLocalSet,  "EA_PHI2",    kNoLocalSet,
    /* 84 */ kNoLocalSet, kNoLocalSet,  kNoLocalSet,  kNoLocalSet,
    /* 88 */ kNoLocalSet, kNoLocalSet,  kNoLocalSet,  kNoLocalSet,
    /* 92 */ kNoLocalSet, kNoLocalSet,  kNoLocalSet,  "JAPAN",
    /* 96 */ "EU_TOTAL",
};

}  // namespace fa
