// The list of processes by jetsam band: command 1.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/model/jetsam_model.h"

namespace vorlatch::model {

// GET_PRIORITY_LIST after the checks common to every command. With pid 0 every process, in the
// order in which the kernel would end them; otherwise the one entry of that process. A null buffer
// asks for the number of bytes.
CallResult getPriorityList(const Kernel& kernel, const JetsamTable& table,
                           const ProcessList& processes, std::int32_t pid, void* buffer,
                           std::size_t buffersize);

}  // namespace vorlatch::model
