// SPDX-License-Identifier: MIT
// Status texts (HmGetErrorString) and the driver completion-code map.
#include "vx_hmerr.h"

#include <array>
#include <cstdio>

#include "vxhmx.h"

namespace vxhmx {
namespace {

// The texts are the ones management applications have always shown; their
// odd spellings ("Fabricdoesn't", "FirmaWare", "NVRam") are part of that.
constexpr std::array<ErrorText, 86> kErrorTexts{{
    {HMX_STATUS_OK, "No error"},
    {HMX_ERR_INVALID_COMMAND_CODE, "Invalid command code"},
    {HMX_ERR_INVALID_VERSION_LEVEL, "Invalid version level"},
    {HMX_ERR_LOGICAL_ERROR, "Logical error"},
    {HMX_ERR_INVALID_IU_SIZE, "Invalid IU size"},
    {HMX_ERR_LOGICAL_BUSY, "Logical busy"},
    {HMX_ERR_PROTOCOL_ERROR, "Protocol error"},
    {HMX_ERR_NO_ADDITIONAL_EXPLANATION, "(09h) No Additional Explanation"},
    {HMX_ERR_IE_LIST_NA, "IE List Not Available"},
    {HMX_ERR_IE_TYPE_NA, "IE Type Not Available"},
    {HMX_ERR_DOMAIN_ID_NA, "Domain ID Not Available"},
    {HMX_ERR_INBAND_MGMT_ADDR_NA, "In-Band Management Address Not Available"},
    {HMX_ERR_FABRIC_NAME_NA, "Fabric Name Not Available"},
    {HMX_ERR_LOGICAL_IE_NAME_NA, "Logical IE Name Not Available"},
    {HMX_ERR_MGMT_ADDR_LIST_NA, "Management Address List Not Available"},
    {HMX_ERR_IE_ATTR_LIST_NA, "IE Attributes List Not Available"},
    {HMX_ERR_PORT_LIST_NA, "Port List Not Available"},
    {HMX_ERR_PORT_TYPE_NA, "Port Type Not Available"},
    {HMX_ERR_PHYS_PORT_ID_NA, "Physical Port ID Not Available"},
    {HMX_ERR_LOGICAL_PORT_NAME_NA, "Logical Port Name Not Available"},
    {HMX_ERR_ATTACHED_PORT_NAME_LIST_NA, "Attached Port Name List Not Available"},
    {HMX_ERR_PORT_ATTR_LIST_NA, "Port Attributes List Not Available"},
    {HMX_ERR_PORT_STATE_NA, "Port State Not Available"},
    {HMX_ERR_SET_LOGICAL_IE_NAME, "Unable to Set Logical IE Name"},
    {HMX_ERR_SET_LOGICAL_PORT_NAME, "Unable to Set Logical Port Name"},
    {HMX_ERR_AUTHENTICATION_EXCEPTION, "Authentication Exception"},
    {HMX_ERR_RESERVED_CODE, "Error: Reserved code"},
    {HMX_ERR_MS_COMMAND_NOT_SUPPORTED, "Command not supported"},
    {HMX_ERR_VENDOR_UNIQUE, "Vendor unique error"},
    {HMX_ERR_MS_RESERVED, "Management Server reserved error"},
    {HMX_ERR_MS_BUFFER_NOT_BIG_ENOUGH, "Specified buffer is not big enough for all data"},
    {HMX_ERR_PORT_ID_NOT_REGISTERED, "Port Identifier not registered"},
    {HMX_ERR_PORT_NAME_NOT_REGISTERED, "Port Name not registered"},
    {HMX_ERR_NODE_NAME_NOT_REGISTERED, "Node Name not registered"},
    {HMX_ERR_COS_NOT_REGISTERED, "Class of Service not registered"},
    {HMX_ERR_NODE_IP_NOT_REGISTERED, "IP Address (Node) not registered"},
    {HMX_ERR_IPA_NOT_REGISTERED, "Initial Process Associator not registered"},
    {HMX_ERR_FC4_TYPES_NOT_REGISTERED, "FC-4 Types not registered"},
    {HMX_ERR_SYM_PORT_NAME_NOT_REGISTERED, "Symbolic Port Name not registered"},
    {HMX_ERR_SYM_NODE_NAME_NOT_REGISTERED, "Symbolic Node Name not registered"},
    {HMX_ERR_PORT_TYPE_NOT_REGISTERED, "Port Type not registered"},
    {HMX_ERR_PORT_IP_NOT_REGISTERED, "IP Address (Port) not registered"},
    {HMX_ERR_FABRIC_PORT_NAME_NOT_REGISTERED, "Fabric Port Name not registered"},
    {HMX_ERR_HARD_ADDR_NOT_REGISTERED, "Hard Address not registered"},
    {HMX_ERR_ACCESS_DENIED, "Access Denied"},
    {HMX_ERR_UNACCEPTABLE_PORT_ID, "Unacceptable Port Identifier"},
    {HMX_ERR_DATABASE_EMPTY, "Database Empty"},
    {HMX_ERR_NO_OBJECT_IN_SCOPE, "No object registered in the specified scope"},
    {HMX_ERR_INVALID_WWN, "Invalid WWN (IE or Port)"},
    {HMX_ERR_PLATFORM_NAME_NOT_EXIST, "Platform Name does not exist"},
    {HMX_ERR_PLATFORM_NAME_EXISTS, "Platform Name already exists"},
    {HMX_ERR_PLATFORM_NODE_NAME_NOT_EXIST, "Platform Node Name does not exist"},
    {HMX_ERR_PLATFORM_NODE_NAME_EXISTS, "Platform Node Name already exists"},
    {HMX_ERR_AUTHORIZATION_EXCEPTION, "Authorization Exception"},
    {HMX_ERR_NO_MS_RESPONSE, "No Response from Management Server/Fabricdoesn't support MS"},
    {HMX_ERR_SCSI_CHECK_CONDITION, "SCSI check condition"},
    {HMX_ERR_SCSI_CONDITION_MET, "SCSI condition Met"},
    {HMX_ERR_SCSI_BUSY, "SCSI busy"},
    {HMX_ERR_SCSI_INTERMEDIATE, "SCSI intermediate"},
    {HMX_ERR_SCSI_INTERMEDIATE_COND_MET, "SCSI intermediate condition met"},
    {HMX_ERR_SCSI_RESERVATION_CONFLICT, "SCSI reservation conflict"},
    {HMX_ERR_SCSI_COMMAND_TERMINATED, "SCSI command terminated"},
    {HMX_ERR_SCSI_QUEUE_FULL, "SCSI queue full"},
    {HMX_ERR_SCSI_UNKNOWN_STATUS, "SCSI unknown status"},
    {HMX_ERR_INVALID_PARAMETER, "Invalid parameter"},
    {HMX_ERR_INVALID_HANDLE, "Handle to HBA device is invalid"},
    {HMX_ERR_NOT_SUPPORTED, "Command not supported"},
    {HMX_ERR_DEVICE_BUSY, "Device is busy"},
    {HMX_ERR_REQUEST_PENDING, "Request pending"},
    {HMX_ERR_REQUEST_SUSPENDED, "Request suspended"},
    {HMX_ERR_REQUEST_RETRY_PENDING, "Request retry pending"},
    {HMX_ERR_DATA_OVERRUN, "Data overrun"},
    {HMX_ERR_DATA_UNDERRUN, "Data underrun"},
    {HMX_ERR_DEVICE_NOT_FOUND, "Device not found"},
    {HMX_ERR_COPY_MEMORY_FAILED, "Copy memory failed"},
    {HMX_ERR_MAILBOX_FAILED, "Firmware mailbox failed"},
    {HMX_ERR_INVALID_SUBCODE, "Invalid command sub-code"},
    {HMX_ERR_UNSUPPORTED_VERSION, "Unsupported command version"},
    {HMX_ERR_BUFFER_TOO_SMALL, "Buffer too small"},
    {HMX_ERR_INVALID_REQUEST, "Invalid request"},
    {HMX_ERR_OUT_OF_MEMORY, "Out of memory"},
    {HMX_ERR_UNKNOWN, "Unknown error"},
    {HMX_ERR_INVALID_CONFIG_SETTING, "Invalid configuration registry setting"},
    {HMX_ERR_NOT_FROM_DEVICE, "Buffer content returned not directly from device"},
    {HMX_ERR_NVRAM_CHECKSUM, "NVRam CheckSum is not valid"},
    {HMX_ERR_FIRMWARE_STATE, "FirmaWare State is not valid"},
}};

// Completion codes 0..16 of a driver request, by index.
constexpr std::array<uint32_t, 17> kCompletionMap{
    HMX_STATUS_OK,           HMX_ERR_UNKNOWN,           HMX_ERR_DEVICE_BUSY,
    HMX_ERR_REQUEST_PENDING, HMX_ERR_REQUEST_SUSPENDED, HMX_ERR_REQUEST_RETRY_PENDING,
    HMX_ERR_INVALID_PARAMETER, HMX_ERR_DATA_OVERRUN,    HMX_ERR_DATA_UNDERRUN,
    HMX_ERR_DEVICE_NOT_FOUND, HMX_ERR_COPY_MEMORY_FAILED, HMX_ERR_MAILBOX_FAILED,
    HMX_ERR_INVALID_SUBCODE, HMX_ERR_UNSUPPORTED_VERSION, HMX_ERR_NO_MS_RESPONSE,
    0 /* 15: by SCSI status */, HMX_ERR_BUFFER_TOO_SMALL,
};

struct ScsiStatusRow {
    uint8_t scsi_status;
    uint32_t code;
};
constexpr std::array<ScsiStatusRow, 9> kScsiStatusMap{{
    {0, HMX_STATUS_OK},
    {2, HMX_ERR_SCSI_CHECK_CONDITION},
    {4, HMX_ERR_SCSI_CONDITION_MET},
    {8, HMX_ERR_SCSI_BUSY},
    {16, HMX_ERR_SCSI_INTERMEDIATE},
    {20, HMX_ERR_SCSI_INTERMEDIATE_COND_MET},
    {24, HMX_ERR_SCSI_RESERVATION_CONFLICT},
    {34, HMX_ERR_SCSI_COMMAND_TERMINATED},
    {40, HMX_ERR_SCSI_QUEUE_FULL},
}};

constexpr uint32_t kDriverStatus23 = 23;

// One buffer for the formatted fall-back texts, shared by every caller.
char g_error_text[64];

}  // namespace

std::span<const ErrorText> error_texts() { return kErrorTexts; }

}  // namespace vxhmx

extern "C" uint32_t HmXlateHMXErr(uint32_t ext_stat, uint32_t ext_dstat) {
    using namespace vxhmx;
    if (ext_stat == EXT_STATUS_SCSI_STATUS) {
        // Only the status byte counts; the driver may leave flags above it.
        const auto scsi = static_cast<uint8_t>(ext_dstat & 0xFF);
        for (const auto &row : kScsiStatusMap)
            if (row.scsi_status == scsi) return row.code;
        return HMX_ERR_SCSI_UNKNOWN_STATUS;
    }
    if (ext_stat < kCompletionMap.size()) return kCompletionMap[ext_stat];
    if (ext_stat == kDriverStatus23) return HMX_ERR_DRIVER_STATUS_23;
    return HMX_ERR_NOT_SUPPORTED;
}

extern "C" const char *HmGetErrorString(uint32_t ErrorCode) {
    using namespace vxhmx;
    for (const auto &row : kErrorTexts)
        if (row.code == ErrorCode) return row.text;
    if (ErrorCode > 0x1FFFFFFF)
        std::snprintf(g_error_text, sizeof g_error_text, "Unknown Error %xh.", ErrorCode);
    else
        std::snprintf(g_error_text, sizeof g_error_text, "System Error %d.", static_cast<int>(ErrorCode));
    return g_error_text;
}
