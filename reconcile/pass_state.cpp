#include "reconcile/pass_state.h"

namespace vorlatch {

PassState& passState() {
  static PassState& state = *new PassState;
  return state;
}

std::int32_t pidIn(const std::map<std::string, std::int32_t, std::less<>>& pids,
                   const std::string& key) {
  const auto entry = pids.find(key);
  return entry == pids.end() ? 0 : entry->second;
}

}  // namespace vorlatch
