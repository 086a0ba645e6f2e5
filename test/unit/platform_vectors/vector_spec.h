// Hand-written wire bytes for the vector tables.
//
// A spec is a list of blank-separated pieces:
//   03000000      hex bytes, in the order they lie on the wire
//   "abc"         the ASCII bytes of the text (no blanks, no escapes)
//   u"abc"        the text as UTF-16LE code units (ASCII text only)
// so "03000000 "abc" 00" is the string item abc with its NUL and without
// its padding. An empty spec is an empty parcel.
#ifndef DD_TEST_VECTOR_SPEC_H
#define DD_TEST_VECTOR_SPEC_H

#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace DdTest {

inline std::vector<uint8_t> ParseSpec(const std::string& spec)
{
    std::vector<uint8_t> bytes;
    std::istringstream pieces(spec);
    std::string piece;
    while (pieces >> piece) {
        bool wide = piece.size() >= 3 && piece[0] == 'u' && piece[1] == '"' && piece.back() == '"';
        bool narrow = piece.size() >= 2 && piece[0] == '"' && piece.back() == '"';
        if (wide || narrow) {
            std::string text = piece.substr(wide ? 2 : 1, piece.size() - (wide ? 3 : 2));
            for (char c : text) {
                bytes.push_back(static_cast<uint8_t>(c));
                if (wide) {
                    bytes.push_back(0);
                }
            }
            continue;
        }
        if (piece.size() % 2 != 0) {
            throw std::invalid_argument("odd number of hex digits in '" + piece + "'");
        }
        for (size_t i = 0; i < piece.size(); i += 2) {
            bytes.push_back(static_cast<uint8_t>(std::stoul(piece.substr(i, 2), nullptr, 16)));
        }
    }
    return bytes;
}

}  // namespace DdTest

#endif  // DD_TEST_VECTOR_SPEC_H
