#include "cluster_store.h"

#include "store/clickhouse/logouts.h"
#include "store/clickhouse/marks.h"
#include "store/clickhouse/reading.h"
#include "store/clickhouse/rollups.h"
#include "store/clickhouse/schema.h"
#include "store/clickhouse/upkeep.h"
#include "store/spool/collecting.h"

namespace store::cluster {

namespace {

using clickhouse::Exclusions;
using clickhouse::Layout;
using spool::Collecting;

/// For commands beside a server: takes no uploads.
class BesideServer : public Writing
{
public:
    explicit BesideServer(spool::Keeping keeping) : m_keeping(std::move(keeping)) {}

    Result<std::vector<Receipt>> write(std::span<const Upload* const>, const GroupLimit&) override
    {
        return Fault{FaultKind::other, "The store was opened for questions alone."};
    }
    // What is too old is a server's chore.
    Result<Progress> retain(const Retention&) override { return Progress{0, 0, true}; }
    Result<uint64_t> forget(std::string_view installation, std::chrono::milliseconds wait) override
    {
        return m_keeping.forget(installation, wait);
    }

private:
    const spool::Keeping m_keeping;
};

class ClusterStore : public Store
{
public:
    ClusterStore(std::shared_ptr<const Layout> layout, std::shared_ptr<Exclusions> exclusions,
                 std::shared_ptr<Collecting> collecting, Opening opening)
        : m_spLayout(std::move(layout)),
          m_spExclusions(std::move(exclusions)),
          m_spCollecting(std::move(collecting)),
          m_opening(opening)
    {
        if (opening == Opening::serve)
            m_spUpkeep = std::make_shared<clickhouse::Upkeep>(m_spLayout);
    }
    ~ClusterStore() override
    {
        // A server begins again where it ended; whoever writes once may not come back to this spool.
        if (m_opening == Opening::create)
            m_spCollecting->wait_until_shipped(std::chrono::minutes(1));
    }

    Result<std::unique_ptr<Writing>> writing() override
    {
        return m_spCollecting ? Collecting::writing(m_spCollecting, keeping())
                              : std::make_unique<BesideServer>(keeping());
    }
    Result<std::unique_ptr<Reading>> reading() override
    {
        return clickhouse::make_reading(
            {m_spLayout, clickhouse::closed_days,
             [exclusions = m_spExclusions](clickhouse::Client&) { return exclusions->condition(); }});
    }
    Result<Done> backup(const std::string&, const std::function<bool(const Progress&)>&) override
    {
        return Fault{FaultKind::other, "A cluster's copies are its replicas; only a store in one file is copied."};
    }

    std::optional<ClusterStatus> cluster_status() const override
    {
        if (!m_spCollecting)
            return std::nullopt;
        ClusterStatus status = m_spCollecting->status();
        if (m_spUpkeep)
            status.upkeep = m_spUpkeep->trouble();
        return status;
    }
    bool has_other_writers() const override { return true; }
    std::unique_ptr<Logouts> logouts() override { return std::make_unique<clickhouse::ClusterLogouts>(m_spLayout); }

private:
    spool::Keeping keeping() const
    {
        spool::Keeping keeping;
        if (m_spUpkeep)
            keeping.retain = [upkeep = m_spUpkeep](const Retention& retention) { return upkeep->retain(retention); };
        keeping.forget = [layout = m_spLayout, exclusions = m_spExclusions](std::string_view installation,
                                                                            std::chrono::milliseconds wait) {
            return clickhouse::forget(*layout, exclusions.get(), std::string(installation), wait);
        };
        return keeping;
    }

    const std::shared_ptr<const Layout> m_spLayout;
    const std::shared_ptr<Exclusions> m_spExclusions;
    const std::shared_ptr<Collecting> m_spCollecting; ///< none with Opening::use
    const Opening m_opening;
    std::shared_ptr<clickhouse::Upkeep> m_spUpkeep; ///< of a server alone
};

// What is never stored.
spool::Screen screen_of(const std::shared_ptr<Exclusions>& exclusions)
{
    return {[exclusions](uint16_t week) { return exclusions->is_too_old(week); },
            [exclusions](std::string_view installation) { return exclusions->is_forgotten(installation); }};
}

} // namespace

Result<std::unique_ptr<Store>> open(const std::string& address, const OpenOptions& options)
{
    auto parsed = clickhouse::parse_address(address, options.cluster);
    if (!parsed)
        return parsed.fault();
    if (auto checked = clickhouse::check_schema(*parsed); !checked)
        return checked.fault();
    const auto layout = std::make_shared<const Layout>(std::move(*parsed));
    const auto exclusions = std::make_shared<Exclusions>(layout);
    std::shared_ptr<Collecting> collecting;
    if (options.opening != Opening::use) {
        auto started = Collecting::start(layout, options.cluster, screen_of(exclusions), clickhouse::write_marks);
        if (!started)
            return started.fault();
        collecting = std::move(*started);
    }
    return std::unique_ptr<Store>(
        std::make_unique<ClusterStore>(layout, exclusions, std::move(collecting), options.opening));
}

} // namespace store::cluster
