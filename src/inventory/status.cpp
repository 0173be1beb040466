// Status texts, the detail text of set operations, the library's name and version.
#include <kxlinhw/status.h>

#include <cstring>

extern "C" {

// Searched from the beginning and not sorted: 317 comes before 301.
const ErrStrEntry ErrStr[KX_ERRSTR_ROWS] = {
    {KX_SUCCESS, "Success"},
    {KX_UNKNOWN_ERROR, "Unknown Error"},
    {KX_NO_CARDS, "No Kestrix cards"},
    {KX_INVALID_SET_VALUE, "Invalid set value"},
    {KX_DRIVER_NOT_LOADED, "Kestrix driver not loaded/installed"},
    {KX_RESOURCE_UNAVAILABLE, "Resource unavailable"},
    {KX_INVALID_PORT, "Invalid port instance for the specified pci bus location"},
    {KX_NO_SUCH_DEVICE, "No device with the specified pci bus location found"},
    {KX_NO_MEMORY, "No memory"},
    {KX_ZFAB3_NOT_LOADED, "Driver zfab3 not loaded"},
    {KX_Q3_TOM_NOT_LOADED, "TOE driver q3_tom not loaded"},
    {KX_NO_SUCH_STAT, "No such stat exists"},
    {KX_NIC_ONLY, "Operation not supported: NIC-Only card"},
    {KX_NO_PORT, "No port configured for the device"},
    {KX_INVALID_PARAMETER, "Invalid parameter"},
    {KX_UNSUPPORTED_DRIVER, "Unsupported Driver"},
    {0xFFFFFFFF, nullptr},
};
static_assert(sizeof(ErrStrEntry) == 12, "agents walk the table in steps of 12 bytes");

char errStr[KX_DETAIL_SIZE];
uint32_t g_err;

const char* GetErrStr(int32_t code) {
    if (code == KX_SET_FAILED) {
        errStr[KX_DETAIL_SIZE - 1] = '\0';
        return errStr;
    }
    // The code of the last row is -1 as a signed number, so the loop must end before it compares
    // this row.
    for (const ErrStrEntry* row = ErrStr; row->code != 0xFFFFFFFF; ++row) {
        if (row->code == static_cast<uint32_t>(code)) {
            return row->text;
        }
    }
    return nullptr;
}

uint32_t GetLibVersion(void* buffer) {
    if (buffer == nullptr) {
        return KX_INVALID_PARAMETER;
    }
    constexpr char kName[] = "libkxlinhw";
    constexpr uint32_t kVersion = 0x00060002;
    constexpr std::size_t kVersionOffset = 20;
    std::memcpy(buffer, kName, sizeof kName);
    std::memcpy(static_cast<char*>(buffer) + kVersionOffset, &kVersion, sizeof kVersion);
    return KX_SUCCESS;
}

}  // extern "C"
