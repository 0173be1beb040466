// The keys of an interface's [nic] table: the answers of its driver.
#pragma once

#include <kxsim/nic.hpp>

#include "scenario/table_reader.hpp"

namespace kxsim {

void read_nic(TableReader& table, Nic& nic);

}  // namespace kxsim
