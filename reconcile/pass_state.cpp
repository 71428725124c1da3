#include "reconcile/pass_state.h"

namespace vorlatch {

PassState& passState() {
  static PassState& state = *new PassState;
  return state;
}

}  // namespace vorlatch
