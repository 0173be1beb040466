/* The flat interface of libkxlinhw, whole.

   The library runs inside the agent, as root, and is not thread-safe: the agent serialises its
   calls. Functions return a status of <kxlinhw/status.h> unless they say otherwise. */
#ifndef KXLINHW_KXLINHW_H
#define KXLINHW_KXLINHW_H

#include <kxlinhw/hex.h>
#include <kxlinhw/inventory.h>
#include <kxlinhw/modules.h>
#include <kxlinhw/query.h>
#include <kxlinhw/records.h>
#include <kxlinhw/status.h>

#endif
