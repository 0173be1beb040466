// The list of adapters with all that their flash and EEPROM hold.
#include <kxlinhw/adapter_lists.h>

extern "C" {

AdapterRecord* g_KestrixAdapters = nullptr;
AdapterInfoRecord* g_KestrixAdapterInfo = nullptr;

}  // extern "C"
