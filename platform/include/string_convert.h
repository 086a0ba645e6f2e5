// UTF-8 <-> UTF-16 conversion.
#ifndef TAVIK_PLATFORM_STRING_CONVERT_H
#define TAVIK_PLATFORM_STRING_CONVERT_H

#include <string>

namespace Tavik {

// Ill-formed input (a lone surrogate, a bad UTF-8 sequence) yields the empty
// string rather than a partial result.
std::string Str16ToStr8(const std::u16string& str16);
std::u16string Str8ToStr16(const std::string& str);

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_STRING_CONVERT_H
