#include "targets/c_rs_adder.h"

namespace gw {

void CRSAdder::ConcatListRS(const db::RecordsetPtr& rsSource, const db::RecordsetPtr& rsDest) {
  ReportAs("CRSAdder.ConcatListRS(rsSource,rsDest)", Args(rsSource, rsDest), [&] {
    if (!rsSource || !rsSource->IsOpen() || rsSource->RecordCount() == 0) return;
    if (rsSource->GetCursorType() != db::CursorType::ForwardOnly && !rsSource->IsEOF() &&
        !rsSource->IsBOF()) {
      rsSource->MoveFirst();
    }
    while (!rsSource->IsEOF()) {
      rsDest->AddNew();
      for (db::Field& field : rsDest->GetFields()) {
        if (field.Type() == db::DataType::Chapter) continue;
        field.SetValue(rsSource->GetFields().Item(field.Name()).Value());
      }
      rsDest->Update();
      rsSource->MoveNext();
    }
  });
}

}  // namespace gw
