#pragma once

#include <string>
#include <string_view>

namespace host {

/// A text from outside, fit for any terminal and any JSON document: quotes and backslashes get a backslash,
/// control characters, those that turn or hide writing, and bytes that are no UTF-8 become \xHH.
std::string escaped(std::string_view text);

/// A sentence in which what comes from outside should be escaped already: quotes and backslashes stay.
std::string harmless(std::string_view sentence);

/// A text from outside for a JSON string, which can hold anything but bytes that are no UTF-8: with those it
/// is escaped as above.
std::string jsonText(std::string_view text);

}  // namespace host
