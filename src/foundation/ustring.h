#pragma once
// Text of the system: UTF-16 code units. Paths, part names, XML text and metadata values are ustring;
// narrow (UTF-8) text appears only in exception messages and at conversion points.
#include <string>
#include <string_view>

using ustring = std::u16string;
using ustring_view = std::u16string_view;
