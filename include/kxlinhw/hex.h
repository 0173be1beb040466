/* Hexadecimal texts. */
#ifndef KXLINHW_HEX_H
#define KXLINHW_HEX_H

#include <kxlinhw/export.h>

KX_BEGIN_DECLS

/* The value of a text's first two characters read as hexadecimal digits, 0 to 255. A character that
   is not a digit adds nothing and is not an error: "1f" gives 31, "fz" gives 15, "z7" gives 7. The
   value of the first character is multiplied by 16 only when the second one is a digit. Nothing is
   read after the NUL of the text; null gives 0. Prints nothing. */
KX_EXPORT int atohex(const char* text);

KX_END_DECLS

#endif
