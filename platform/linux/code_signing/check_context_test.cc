#include "platform/linux/code_signing/check_context.h"

#include <gtest/gtest.h>

namespace platform::code_signing {
namespace {

TEST(WorkBudgetTest, EachKindOfWorkIsBounded) {
  WorkBudget budget;
  budget.ChargeForVerifications(1000);
  EXPECT_THROW(budget.ChargeForVerifications(1), BudgetExceeded);
  EXPECT_NO_THROW(budget.ChargeForMessage(1));
}

TEST(WorkBudgetTest, AllWorkIsBounded) {
  WorkBudget budget;
  budget.ChargeForVerifications(750);
  budget.ChargeForCertificates(1500);
  budget.ChargeForMessage(3U << 19U);
  budget.ChargeForComponent(32U << 20U);
  EXPECT_THROW(budget.ChargeForRequirement(3U << 18U), BudgetExceeded);
}

}  // namespace
}  // namespace platform::code_signing
