#include "Data/OperationResult.h"

#include <string>

#include <gtest/gtest.h>

namespace Kivo::Data {
namespace {

TEST(OperationResult, CodeStringsAreTheClientFacingWords) {
    const std::pair<OperationResult::Value, const char*> rows[] = {
        {OperationResult::OK, "ok"},
        {OperationResult::NO_UPDATE, "ok"},
        {OperationResult::PROCESSING_ERROR, "processing_error"},
        {OperationResult::INVALID_OPERATION, "invalid_operation"},
        {OperationResult::INVALID_VALUE, "invalid_value"},
        {OperationResult::INVALID_OBJECT, "invalid_object"},
        {OperationResult::WRONG_PROPERTY_TYPE, "wrong_type"},
        {OperationResult::UNKNOWN_PROPERTY, "unknown_property"},
        {OperationResult::UNKNOWN_OBJECT, "unknown_object"},
        {OperationResult::NOT_FOUND, "not_found"},
        {OperationResult::DUPLICATE, "duplicate"},
        {OperationResult::FORBIDDEN, "forbidden"},
        {static_cast<OperationResult::Value>(12), "<invalid result value>"},
        {static_cast<OperationResult::Value>(-1), "<invalid result value>"},
    };
    for (const auto& [value, text] : rows) {
        const int code = value;
        EXPECT_EQ(text, OperationResult(value).toString()) << code;
        EXPECT_EQ(code <= 1 && code >= 0, OperationResult(value).isSuccess()) << code;
    }
}

TEST(OperationResult, MessageFallsBackToTheCodeString) {
    OperationResult result(OperationResult::FORBIDDEN, "no write access");
    EXPECT_EQ("no write access", std::string(result));
    result.set(OperationResult::NOT_FOUND);
    EXPECT_EQ("not_found", OperationResult(result).toString()) << "set() drops the message";
}

}  // namespace
}  // namespace Kivo::Data
