/* Includes only the interface. It is compiled for its debugging information, which describes every
   record and constant. */
#include <kxlinhw/kxlinhw.h>
