// The stores that the contract's tests run against: a new, empty one for each test.
#pragma once

#include "intake/intake.h"
#include "store/store.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

namespace test {

/// One kind of store. A further one joins by a row in the list of stores.cpp.
struct Backend
{
    const char* name;
    /// Opens the store that belongs to the folder, and makes it when it is not there. `place` is what lives as long as
    /// the test.
    std::unique_ptr<store::Store> (*open)(const std::string& folder, std::shared_ptr<void>& place);
    /// It knows the last texts of each sender, tells known lines in receipts and keeps its rollups itself. Else an
    /// event is known by its key alone.
    bool is_file;
    int questions; ///< of a test that asks at random: nodes answer each in some milliseconds
};
extern const std::vector<Backend> backends;

class StoreContract : public testing::TestWithParam<Backend>
{
protected:
    StoreContract();
    /// Closes the store and opens it again.
    void reopen();
    /// Begins with an empty one.
    void begin_anew();
    store::Receipt write(const store::Upload& upload);
    /// Waits until what was written can be asked for.
    /// Waits until so many uploads of the last write are safe.
    void settle(size_t uploads = 1);

    std::shared_ptr<void> m_spRest; ///< of the backend, for the whole test
    support::ScratchFolder m_folder;
    std::string m_place; ///< the folder in there that belongs to the store
    std::unique_ptr<store::Store> m_spStore;
    std::unique_ptr<store::Writing> m_spWriting;
    std::unique_ptr<store::Reading> m_spReading;
};

/// An event's line, as the library writes it.
std::string event_line(const std::string& name, const std::string& installation = "i", store::Seconds at = 0,
                       const std::string& members = "{ }", const std::string& application = "app",
                       const std::string& version = "1");

/// An upload as the intake makes it. `batch`: a letter that stands for an id; '\0' for none.
store::Upload upload(std::string data, char batch = '\0', uint32_t first = 0, uint32_t dropped = 0,
                     const std::string& sender = "i", store::Milliseconds received_at = 0);

/// The value of an answer; a test fails that has none.
template <class T>
T value(const store::Result<T>& result)
{
    EXPECT_TRUE(result) << result.fault().text;
    return result ? *result : T();
}

} // namespace test
