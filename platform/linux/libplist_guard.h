// What libplist 2.2.0 would take hours over, told before it sees the bytes.
#pragma once

#include <string_view>

namespace vorlatch::platform {

// False for property lists that take the library quadratic time: a text of very many entities, and
// a dictionary of very many keys, which may share a hash or repeat. Lists that people and programs
// write are far below these bounds. Takes linear time.
bool isEasyForLibplist(std::string_view bytes);

}  // namespace vorlatch::platform
