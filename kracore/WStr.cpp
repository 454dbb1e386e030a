#include "kracore/WStr.h"

#include <iterator>

#include <boost/locale/utf.hpp>

namespace kracore::utility {
namespace {

namespace utf = boost::locale::utf;

constexpr utf::code_point kReplacement = 0xFFFD;

template <class To, class From>
To Convert(std::basic_string_view<From> text) {
    To result;
    result.reserve(text.size());
    for (auto at = text.begin(); at != text.end();) {
        auto next = at;
        utf::code_point point = utf::utf_traits<From>::decode(next, text.end());
        if (point == utf::illegal || point == utf::incomplete) {
            // The decoder may have read past units that begin the next sequence.
            point = kReplacement;
            next = at + 1;
        }
        utf::utf_traits<typename To::value_type>::encode(point, std::back_inserter(result));
        at = next;
    }
    return result;
}

}  // namespace

WStr FromUtf8(std::string_view text) { return Convert<WStr>(text); }

std::string ToUtf8(std::u16string_view text) { return Convert<std::string>(text); }

}  // namespace kracore::utility
