// Questions and inserts to one node, over HTTP by libcurl on a connection that is kept.
//
// Only what the old and the new versions of the engine both know is sent: an unknown setting is refused as a whole. The
// login goes in headers, never in an address, which servers log. Nothing here throws but std::bad_alloc.
#pragma once

#include "address.h"

namespace store::clickhouse {

/// Why a node gave no answer.
struct Trouble
{
    enum class Kind
    {
        unreachable, ///< no connection, or it broke before the answer was whole: what was sent may have been done
        late,        ///< the time was over, or the asker wants it no more; the same holds
        refused,     ///< something answers there that is no node of ours: another status, a wrong certificate
        code         ///< the engine says no, by number
    };
    Kind kind = Kind::unreachable;
    int code = 0;     ///< with Kind::code the engine's number
    std::string text; ///< one sentence for a person, with the node's name
};

template <class T>
using Answer = Result<T, Trouble>;

/// What whoever asks a store is told about it.
Fault fault_of(const Trouble& trouble);

/// The number at the beginning of the engine's sentence "Code: N, ..." or "Code: N. ..."; 0: there is none.
int code_of(std::string_view answer);

/// How much one question may take.
struct Bounds
{
    std::chrono::milliseconds time{30000};
    uint64_t memory = 0; ///< bytes in the node; 0: what the node's own settings allow
    Clock::time_point until = Clock::time_point::max();
    const std::atomic<bool>* stop = nullptr; ///< looked at some times a second
    size_t answer = 512 << 20;               ///< bytes of the answer that are taken
    uint64_t spill = 0;                      ///< bytes of a grouping past which the node's disk takes it; 0: never
};

/// A table that goes along with a question: what would make its text longer than the engine reads (256 KiB).
struct External
{
    std::string name;      ///< as the question calls it
    std::string structure; ///< "key FixedString(16), n UInt32"
    std::string_view rows; ///< RowBinary
};

/// One node. One thread at a time. An answer that is not whole is none.
class Client
{
public:
    Client(const Node& node, const Layout& layout);
    ~Client();
    Client(Client&&) noexcept;
    Client& operator=(Client&&) noexcept;

    const Node& node() const;

    /// The answer's bytes, in the format that `sql` names (FORMAT RowBinary).
    Answer<std::string> ask(const std::string& sql, const Bounds& bounds = {});
    /// The same with a table beside it. `sql` is then a part of the address and must stay below 8 KiB.
    Answer<std::string> ask_with(const std::string& sql, const External& table, const Bounds& bounds = {});
    /// A statement without an answer.
    Answer<Done> run(const std::string& sql, const Bounds& bounds = {});
    /// Rows as RowBinary of `columns`. The engine's own memory of blocks is passed over: it outlives, in the keeper,
    /// rows that a power cut took, and would then swallow their repetition.
    Answer<Done> insert(const std::string& table, const std::string& columns, std::string_view rows,
                        const Bounds& bounds = {});

private:
    struct Connection;
    std::unique_ptr<Connection> m_spConnection;
};

/// A text as a literal of the engine's SQL, whatever bytes it holds.
std::string quoted(std::string_view text);

} // namespace store::clickhouse
