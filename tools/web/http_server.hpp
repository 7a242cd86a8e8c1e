// The HTTP server behind a tool's browser page (the simulator's panel, the fixture console): JSON
// routes, the page's files, and Server-Sent Events streams, all served by one thread of its own
// that waits on every connection at once. No client can hold another up: a connection costs no
// thread while it waits, a request must arrive whole within a deadline (a byte now and then does
// not renew it), lengths the server will not read are refused at once, event streams are
// counted and bounded, a stream whose client stops reading is dropped rather than buffered, and
// stopping closes everything at once, whatever is open.
#pragma once

#include "embedded_files.hpp"
#include "message.hpp"
#include "same_origin.hpp"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace kelvane::web {

// How a route hands back its answer: from any thread, at any time, once (later calls are
// ignored). A request whose Reply is dropped unanswered, or not answered within
// Limits::replyDeadline, gets 503.
class Reply {
public:
    struct State;
    explicit Reply(std::shared_ptr<State> state) : state_(std::move(state)) {}
    void operator()(Response response) const;

private:
    std::shared_ptr<State> state_;
};

// Runs on the serving thread, so it must not block: work that waits goes elsewhere with the Reply.
using Handler = std::function<void(const Request&, Reply)>;
// The data of the events a new stream starts with, asked on the serving thread.
using StreamOpening = std::function<std::vector<std::string>()>;
// Asked on the serving thread before a request reaches its route or stream: the answer that
// refuses it, or nullopt to let it through.
using Gate = std::function<std::optional<Response>(const Request&)>;

class Routes {
public:
    void get(const std::string& path, Handler handler);
    // Taken only from the server's own page (see same_origin.hpp); 403 otherwise.
    void post(const std::string& path, Handler handler);
    // GET /NAME for each file, and GET / for `index`, each answer with `headers` added.
    void files(std::span<const EmbeddedFile> files, const Fields& headers, std::string_view index = "index.html");
    // GET `path`: a Server-Sent Events stream (see HttpServer::publish).
    void events(const std::string& path, StreamOpening opening);
    // Every request whose path starts with `prefix` passes `gate` first (a token check, say).
    void gate(const std::string& prefix, Gate gate);

    // The route for `method` and `path`, or null.
    const Handler* handler(const std::string& method, const std::string& path) const;
    // The opening of the event stream at `path`, or null.
    const StreamOpening* stream(const std::string& path) const;
    // The answer a gate refuses `request` with, or nullopt when every gate lets it through.
    std::optional<Response> refusal(const Request& request) const;

private:
    std::map<std::pair<std::string, std::string>, Handler> handlers_;  // by method and path
    std::map<std::string, StreamOpening> streams_;
    std::vector<std::pair<std::string, Gate>> gates_;  // by path prefix
};

struct Limits {
    std::size_t connections = 128;  // more are closed as they come
    std::size_t eventStreams = 32;  // more get 503
    // A request's headers and body, from the first byte awaited (an idle kept-alive connection
    // included) to the last: past it, the connection is closed.
    std::chrono::milliseconds requestDeadline{5000};
    std::chrono::milliseconds replyDeadline{2000};
    // Any one write, an event stream's included: a client that stops reading is dropped.
    std::chrono::milliseconds writeDeadline{5000};
    std::size_t headerBytes = 8 * 1024;  // more: 431
    std::size_t bodyBytes = 64 * 1024;   // more: 413
    // Events waiting for a stream's socket; more, and the stream is dropped.
    std::size_t streamBacklog = 1024 * 1024;
    // The socket's own send buffer for a stream, kept small so a stalled reader shows soon.
    int streamSocketBuffer = 64 * 1024;
};

struct ServingCore;  // where the serving happens, out of sight of the server's users

class HttpServer {
public:
    // Binds `address`:`port` (0: a free port) and starts serving. Throws std::runtime_error
    // naming the address when it cannot bind.
    HttpServer(Routes routes, const std::string& address, int port, Limits limits = {});
    // Closes the listening socket and every connection, event streams included; returns once
    // the serving thread has ended, in milliseconds whatever was open.
    ~HttpServer();

    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    const ServedAddress& address() const { return address_; }

    // Any thread: one event, `data` (newlines allowed), to every stream open on `path`.
    void publish(const std::string& path, std::string data);

private:
    ServedAddress address_;
    std::unique_ptr<ServingCore> core_;
};

}  // namespace kelvane::web
