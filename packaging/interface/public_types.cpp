// Every type of the public headers in one place, for the guard of the binary interface: the types
// that only the classes' member functions take do not all show in the library itself.
#include <fa_api/InspectionLogger.h>
#include <fa_api/PelkoAppClientLogger.h>
#include <fa_api/automation_api.h>

struct PublicTypes {
    InspectionLogger* store;
    PelkoAppClientLogger* logger;
    PelkoAppClientLogger::Mode_e mode;
    PelkoTestInfo_s testInfo;
    PelkoItem_s item;
    PelkoInspectionType_e inspectionType;
    PelkoRunState_e runState;
    PelkoLinkType_e linkType;
    PelkoResult_e result;
    PelkoSpecType_e specType;
    PelkoErrorFlag_e errorFlag;
    PelkoValueType_e valueType;
    ProtocolData_s protocolData;
    ProtocolCallback_fp protocolCallback;
};

void UsePublicTypes(PublicTypes*) {}
