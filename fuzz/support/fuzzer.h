// What a fuzzer is made of: each source beside this folder defines these two, the rest is shared. A
// fuzzer tells its input to the subject and expects what the tests would; an expectation that fails
// is a finding, as is a crash.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vorlatch::fuzz {

using Words = std::vector<std::string>;

// Tells one input from beginning to end; the next one finds what the first one found.
void tell(std::string_view input);

// The keys and texts that inputs are made with.
const Words& vocabulary();

}  // namespace vorlatch::fuzz
