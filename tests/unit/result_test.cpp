// SPDX-License-Identifier: BSD-3-Clause
#include <emporium/operation.h>
#include <emporium/package.h>
#include <emporium/result.h>

#include "support/output.h"

#include <gtest/gtest.h>

#include <memory>
#include <variant>

namespace {

using namespace Emporium;
using TestSupport::MessageOf;

constexpr const char* wrongAlternative = "std::get: wrong index for variant";

TEST(Result, AVoidSuccessIsNoError)
{
    const Result<void> result{SuccessResult<void>()};
    EXPECT_FALSE(result.HasError());
    EXPECT_TRUE(static_cast<bool>(result));
    EXPECT_EQ(MessageOf<std::bad_variant_access>([&] { result.GetError(); }), wrongAlternative);
}

TEST(Result, AVoidErrorHasItsMessage)
{
    const Result<void> result{ErrorResult("message")};
    EXPECT_TRUE(result.HasError());
    EXPECT_FALSE(static_cast<bool>(result));
    EXPECT_EQ(result.GetError(), "message");
}

TEST(Result, AnErrorHasItsMessageAndNoValue)
{
    const Result<Package> result{ErrorResult("exactly this")};
    EXPECT_FALSE(static_cast<bool>(result));
    EXPECT_TRUE(result.HasError());
    EXPECT_EQ(result.GetError(), "exactly this");
    EXPECT_EQ(MessageOf<std::bad_variant_access>([&] { result.Get(); }), wrongAlternative);
    EXPECT_EQ(MessageOf<std::bad_variant_access>([&] { result.operator->(); }), wrongAlternative);
    EXPECT_EQ(result.GetError(), "exactly this") << "still usable after the failed access";
}

TEST(Result, ASuccessHasItsValue)
{
    const Result<std::string> result{SuccessResult<std::string>("value")};
    EXPECT_TRUE(static_cast<bool>(result));
    EXPECT_EQ(result.Get(), "value");
    EXPECT_EQ(result->size(), 5U);
    EXPECT_EQ(&result.Get(), result.operator->());
    EXPECT_EQ(MessageOf<std::bad_variant_access>([&] { result.GetError(); }), wrongAlternative);
}

TEST(Result, AnErrorMayHaveAnEmptyMessage)
{
    const Result<Operation> result{ErrorResult("")};
    EXPECT_TRUE(result.HasError());
    EXPECT_EQ(result.GetError(), "");
}

TEST(Result, ACopyOutlivesTheFirstHandleAndSharesItsValue)
{
    auto first = std::make_unique<Result<std::string>>(SuccessResult<std::string>("value"));
    const Result<std::string> copy = *first;
    const std::string* const value = &first->Get();
    first.reset();
    EXPECT_EQ(&copy.Get(), value);
    EXPECT_EQ(copy.Get(), "value");
}

TEST(Result, TheValueIsSharedWithTheObjectItWasConstructedFrom)
{
    const Package package("id", "1", "", "", {});
    const SuccessResult<Package> success(package);
    EXPECT_EQ(&success.Get().GetID(), &package.GetID());
    EXPECT_EQ(&Result<Package>(success)->GetID(), &package.GetID());
}

TEST(ErrorResult, CopiesShareTheirMessage)
{
    const ErrorResult error("message");
    const ErrorResult copy = error;
    EXPECT_EQ(&copy.Get(), &error.Get());
}

} // namespace
