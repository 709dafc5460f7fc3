#include "platform/collection.h"

namespace gw::detail {

void ThrowSubscriptOutOfRange(std::string_view source) {
  throw Error(errnum::kSubscriptOutOfRange, std::string(source), "Subscript out of range");
}

void ThrowInvalidKey(std::string_view source) {
  throw Error(errnum::kInvalidProcedureCall, std::string(source),
              "Invalid procedure call or argument");
}

void ThrowDuplicateKey(std::string_view source) {
  throw Error(errnum::kDuplicateKey, std::string(source),
              "This key is already associated with an element of this collection");
}

}  // namespace gw::detail
