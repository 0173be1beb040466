// Releases everything that the adapter functions hold in the process.
#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>

#include "adapter/bus_table.hpp"
#include "adapter/record_list.hpp"
#include "adapter/register_window.hpp"

extern "C" int32_t cleanup_and_exit(int32_t code) {
    if (mmapd_addr != 0) {
        kx::adapter::release_window_mapping();
    }
    kx::adapter::close_window();
    kx::adapter::release_bus();
    kx::adapter::drop_adapter_list();
    kx::adapter::drop_adapterinfo_list();
    g_adapter_count = 0;
    return code;
}
