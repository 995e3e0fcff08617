// The server of the bench: it does only what taking a post needs, so that the client is measured.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace bench {

/// Owns a descriptor.
class Descriptor
{
public:
    explicit Descriptor(int opened) : number(opened) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return number; }

private:
    int number;
};

/// Takes any number of requests on loopback connections, a thread for each connection, and answers 200 when a body is
/// whole.
class Server
{
public:
    Server();
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::string url() const;
    /// Bytes of all requests so far, their headers included.
    std::size_t taken() const { return bytes; }
    /// A new connection to it, with TCP_NODELAY.
    int connect() const;

private:
    void serve(int connection);
    bool take_request(int connection, std::string& buffer);

    Descriptor listener;
    int port = 0;
    std::atomic<bool> ending{false};
    std::atomic<std::size_t> bytes{0};
    std::mutex lock;
    std::vector<int> connections;
    std::vector<std::thread> threads;
    std::thread acceptor;
};

/// Sends all of it; throws when the other side is gone.
void send_all(int connection, const std::string& bytes);
/// Reads one answer without a body.
void read_answer(int connection);

} // namespace bench
