// Several data-access calls in one transaction on the rules store.
#include "rules/rules_transaction.h"

#include <gtest/gtest.h>

#include "rules/failures.h"
#include "rules/package_data_access.h"
#include "rules/template_data_access.h"
#include "rules_fixture.h"

namespace gw {
namespace {

using testing::FailureNumber;
using testing::RulesStoreTest;

class RulesTransactionTest : public RulesStoreTest {
 protected:
  long Pages() { return Count("SELECT COUNT(*) FROM datapages"); }
  // Saves a template with a dataset and a field, and a package with a task.
  void SaveSome() {
    D_DataPage().Save("p1", "Shop");
    D_Entity().Save("e1", "p1", "Items");
    D_Attrib().Save("a1", "e1", "name", "<td>", "</td>", 1);
    DJob().Save("j1", Variant(DateTime::Now()), Variant(DateTime::Now()), "Nightly");
    DTask().Save("t1", "j1", "Fetch", "", 1, 0, 0, "p1");
  }
};

TEST_F(RulesTransactionTest, NothingIsStoredUntilCommit) {
  {
    RulesTransaction tx;
    SaveSome();
    // The data-access classes read what the transaction wrote...
    EXPECT_EQ(D_DataPage().Selectx("p1")->RecordCount(), 1);
    EXPECT_EQ(D_Entity().GetAttributes("e1")->RecordCount(), 1);
    // ...and other connections do not see it yet.
    EXPECT_EQ(Pages(), 0);
    tx.Commit();
  }
  EXPECT_EQ(Pages(), 1);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM tasks WHERE datapage_id = 'p1'"), 1);
}

TEST_F(RulesTransactionTest, AnErrorUnwindingRollsEveryCallBack) {
  const ErrorNumber n = FailureNumber([&] {
    RulesTransaction tx;
    SaveSome();
    D_Entity().Save("", "p1");  // refused: no id
    tx.Commit();
  });
  EXPECT_EQ(n, ruleserr::kInvalidEntityId);
  EXPECT_EQ(Pages(), 0);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM entities"), 0);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs"), 0);
  // The store works as before afterwards, a call at a time.
  D_DataPage().Save("p2", "Other");
  EXPECT_EQ(Pages(), 1);
}

TEST_F(RulesTransactionTest, OneAtATimeAndOnlyOnItsOwnStore) {
  RulesTransaction tx;
  EXPECT_EQ(FailureNumber([] { RulesTransaction second; }), errnum::kOperationNotAllowed);
  // A data-access object on another store works outside the transaction.
  const std::string other =
      "Provider=SQLite;Data Source=" + (home_.Path() / "other.sqlite").string();
  D_DataPage(other).Save("px", "Elsewhere");
  D_DataPage().Save("p1", "Shop");
  tx.Rollback();
  EXPECT_EQ(Pages(), 0);
  EXPECT_EQ(D_DataPage(other).Selectx("px")->RecordCount(), 1);
  EXPECT_EQ(FailureNumber([&] { tx.Commit(); }), errnum::kOperationNotAllowed);
  RulesTransaction next;  // the first one has ended
  next.Commit();
}

}  // namespace
}  // namespace gw
