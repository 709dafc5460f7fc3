#include "platform/db/types.h"

namespace gw::db {

bool IsTextType(DataType t) noexcept {
  switch (t) {
    case DataType::Char:
    case DataType::WChar:
    case DataType::VarChar:
    case DataType::LongVarChar:
    case DataType::VarWChar:
    case DataType::LongVarWChar:
      return true;
    default:
      return false;
  }
}

bool IsNumericType(DataType t) noexcept {
  switch (t) {
    case DataType::SmallInt:
    case DataType::Integer:
    case DataType::BigInt:
    case DataType::Single:
    case DataType::Double:
    case DataType::Currency:
    case DataType::Decimal:
    case DataType::Numeric:
    case DataType::Boolean:
      return true;
    default:
      return false;
  }
}

bool IsDateType(DataType t) noexcept { return t == DataType::Date || t == DataType::DBTimeStamp; }

std::int32_t FixedSizeOf(DataType t) noexcept {
  switch (t) {
    case DataType::SmallInt:
    case DataType::Boolean:
      return 2;
    case DataType::Integer:
    case DataType::Single:
      return 4;
    case DataType::BigInt:
    case DataType::Double:
    case DataType::Currency:
    case DataType::Date:
      return 8;
    case DataType::DBTimeStamp:
      return 16;
    case DataType::Decimal:
    case DataType::Numeric:
    case DataType::Guid:
      return 16;
    case DataType::Chapter:
      return 4;
    default:
      return kUnboundedTextSize;
  }
}

}  // namespace gw::db
