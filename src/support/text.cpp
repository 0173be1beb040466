// Texts that agents may strip by a function of their own.
#include <kxlinhw/settings.h>

#include <cstring>

extern "C" char* trim(char* text) {
    return text == nullptr ? nullptr : text + std::strspn(text, " \t");
}
