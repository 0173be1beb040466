/* Nothing but the interface, compiled for its debugging information: the compiler's own account of
   every record and constant. */
#include <kxlinhw/kxlinhw.h>
