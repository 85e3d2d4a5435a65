#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Data/Base/Object.h"
#include "Data/Base/Property.h"
#include "TestObject.h"

namespace Kivo::Data::Base {
namespace {

using Kivo::Test::TestObject;
typedef PropertyValueNumberBase<long> Number;

// Writers change two properties together under one write lock; readers must never see them
// apart, neither through the values nor through the JSON form, and no write or owner
// notification may be lost.
TEST(ObjectConcurrency, ReadersNeverSeeAHalfDoneWrite) {
    constexpr int WRITERS = 3;
    constexpr int READERS = 3;
    constexpr long WRITES_PER_WRITER = 1500;

    TestObject object;
    PropertyInteger a("a", &object, Number());
    PropertyInteger b("b", &object, Number());
    object.registerProperty("a", &a);
    object.registerProperty("b", &b);

    std::atomic<bool> writing{true};
    std::atomic<long> tornReads{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < READERS; ++r) {
        readers.emplace_back([&] {
            while (writing) {
                {
                    PropertyLockGuard guard(a, false);
                    if (a.getValue() != b.getValue()) ++tornReads;
                }
                Poco::JSON::Object::Ptr json = object.toJSON(0);
                if (json->getValue<long>("a") != json->getValue<long>("b")) ++tornReads;
            }
        });
    }
    std::vector<std::thread> writers;
    for (int w = 0; w < WRITERS; ++w) {
        writers.emplace_back([&] {
            for (long i = 0; i < WRITES_PER_WRITER; ++i) {
                Util::ScopedRecursiveWriteLock lock(*object.getLock());
                ASSERT_TRUE(a.setValue(a.getValue() + 1));
                ASSERT_TRUE(b.setValueFromString(std::to_string(b.getValue() + 1)));
            }
        });
    }
    for (std::thread& writer : writers) writer.join();
    writing = false;
    for (std::thread& reader : readers) reader.join();

    EXPECT_EQ(0, tornReads.load());
    EXPECT_EQ(WRITERS * WRITES_PER_WRITER, a.getValue());
    EXPECT_EQ(WRITERS * WRITES_PER_WRITER, b.getValue());
    EXPECT_EQ(2 * WRITERS * WRITES_PER_WRITER, static_cast<long>(object.events.size()));
}

}  // namespace
}  // namespace Kivo::Data::Base
