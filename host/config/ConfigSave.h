#pragma once

#include <string>

namespace host {

/// Puts a text in place of a file, or makes a new one: all of it or, on any error, nothing. It is on the disk
/// when this returns. Mode and owner of the file stay as far as this process may set them; a link stays, and
/// what it leads to is replaced. Throws Error.
void save(const std::string& path, const std::string& text);

}  // namespace host
