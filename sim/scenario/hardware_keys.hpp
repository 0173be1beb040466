// The keys of an adapter's [flash] and [eeprom] tables.
#pragma once

#include <kxsim/host.hpp>

#include "scenario/table_reader.hpp"

namespace kxsim {

// The table of the flash includes the faults of its controller.
void read_flash(TableReader& table, Adapter& adapter);
void read_eeprom(TableReader& table, Eeprom& eeprom);

}  // namespace kxsim
