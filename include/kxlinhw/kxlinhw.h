/* The whole flat interface of libkxlinhw.

   The library runs inside the agent, as root, and is not thread-safe: the agent serialises its
   calls. Functions return a status of <kxlinhw/status.h> unless they say otherwise. */
#ifndef KXLINHW_KXLINHW_H
#define KXLINHW_KXLINHW_H

#include <kxlinhw/adapter.h>
#include <kxlinhw/adapter_lists.h>
#include <kxlinhw/boot_config.h>
#include <kxlinhw/flash.h>
#include <kxlinhw/flash_images.h>
#include <kxlinhw/hex.h>
#include <kxlinhw/inventory.h>
#include <kxlinhw/iwarp.h>
#include <kxlinhw/modules.h>
#include <kxlinhw/offload.h>
#include <kxlinhw/port.h>
#include <kxlinhw/q3_boot.h>
#include <kxlinhw/query.h>
#include <kxlinhw/records.h>
#include <kxlinhw/settings.h>
#include <kxlinhw/statistics.h>
#include <kxlinhw/status.h>
#include <kxlinhw/vpd.h>

#endif
