// Command 1, GET_PRIORITY_LIST: the processes by jetsam band.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/model/jetsam_model.h"

namespace vorlatch::model {

// Answers GET_PRIORITY_LIST, after the checks common to all commands. For pid 0 stores all
// processes, in the order in which the kernel would end them; for another pid only its entry. With
// a null buffer, returns the number of bytes needed.
CallResult getPriorityList(const Kernel& kernel, const JetsamTable& table,
                           const ProcessList& processes, std::int32_t pid, void* buffer,
                           std::size_t buffersize);

}  // namespace vorlatch::model
