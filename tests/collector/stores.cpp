#include "stores.h"

#ifdef ANALYTICS_COLLECTOR_CLUSTER
#include "cluster.h"
#endif

#include <chrono>
#include <future>

namespace test {

namespace {

std::unique_ptr<store::Store> open_at(const std::string& address, const store::OpenOptions& options)
{
    auto opened = store::open(address, options);
    EXPECT_TRUE(opened) << opened.fault().text;
    return opened ? std::move(*opened) : nullptr;
}

std::unique_ptr<store::Store> open_file(const std::string& folder, std::shared_ptr<void>&)
{
    return open_at(folder + "/events.db", {store::Opening::create});
}

#ifdef ANALYTICS_COLLECTOR_CLUSTER
// On one replica of each shard: what is written is what is read at once.
std::unique_ptr<store::Store> open_cluster(const std::string& folder, std::shared_ptr<void>& place)
{
    if (place == nullptr)
        place = std::make_shared<ClusterDatabase>(1);
    auto& database = *static_cast<ClusterDatabase*>(place.get());
    store::OpenOptions options{store::Opening::create};
    options.cluster.spool = folder + "/spool.db";
    options.cluster.group_time = std::chrono::milliseconds(1);
    if (!std::filesystem::exists(options.cluster.spool))
        database.clear();
    return open_at(database.address(), options);
}
#endif

} // namespace

const std::vector<Backend> backends = {{"sqlite", open_file, true, 120},
#ifdef ANALYTICS_COLLECTOR_CLUSTER
                                       {"clickhouse", open_cluster, false, 12}
#endif
};

StoreContract::StoreContract()
{
    begin_anew();
}

void StoreContract::begin_anew()
{
    m_place =
        m_folder.file(m_place.empty() ? "1" : std::to_string(std::stoi(m_place.substr(m_place.rfind('/') + 1)) + 1));
    std::filesystem::create_directory(m_place);
    reopen();
}

void StoreContract::reopen()
{
    m_spReading.reset();
    m_spWriting.reset();
    m_spStore.reset();
    m_spStore = GetParam().open(m_place, m_spRest);
    m_spWriting = std::move(*m_spStore->writing());
    m_spReading = std::move(*m_spStore->reading());
}

store::Receipt StoreContract::write(const store::Upload& upload)
{
    const store::Upload* one = &upload;
    auto receipts = m_spWriting->write({&one, 1}, {});
    EXPECT_TRUE(receipts) << receipts.fault().text;
    settle();
    return receipts ? receipts->front() : store::Receipt();
}

void StoreContract::settle(size_t uploads)
{
    for (size_t i = 0; i < uploads; ++i) {
        std::promise<std::optional<store::Fault>> settled;
        m_spWriting->settle(i, [&](const auto& fault) { settled.set_value(fault); });
        const auto fault = settled.get_future().get();
        EXPECT_FALSE(fault) << fault->text;
    }
}

std::string event_line(const std::string& name, const std::string& installation, store::Seconds at,
                       const std::string& members, const std::string& application, const std::string& version)
{
    using namespace std::chrono;
    sys_seconds time{seconds(at)};
    year_month_day date(floor<days>(time));
    hh_mm_ss clock(time - floor<days>(time));
    char text[32];
    snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d", int(date.year()), unsigned(date.month()),
             unsigned(date.day()), int(clock.hours().count()), int(clock.minutes().count()),
             int(clock.seconds().count()));
    return "[ 3, \"" + std::string(text) + "\", \"" + application + "\", \"" + version + "\", \"" + installation +
           "\", \"" + name + "\", " + members + " ]";
}

store::Upload upload(std::string data, char batch, uint32_t first, uint32_t dropped, const std::string& sender,
                     store::Milliseconds received_at)
{
    intake::Form form;
    form.data = std::move(data);
    form.sender = sender;
    if (batch != '\0')
        form.batch.emplace().fill(static_cast<unsigned char>(batch));
    form.first_line = first;
    form.dropped = dropped;
    store::Upload made;
    EXPECT_FALSE(intake::read_lines(std::move(form), std::nullopt, received_at, {}, made));
    return made;
}

} // namespace test
