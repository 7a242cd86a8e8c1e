// Boost.Beast over Boost.Asio, and only in this file: every connection is a chain of
// asynchronous operations on one io_context, run by one thread. Waiting costs a connection no
// thread, so a slow or silent client holds nothing that another needs; beast::tcp_stream's
// expiry gives each request a deadline for the whole of it and each write one of its own; the
// parser's limits and its Content-Length checks refuse what will not be read before reading it.
#include "http_server.hpp"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include <array>
#include <atomic>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <thread>

namespace kelvane::web {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = net::ip::tcp;
using ErrorCode = boost::system::error_code;

namespace {

// A comment line this often keeps an idle event stream from being closed by proxies and timeouts.
constexpr std::chrono::seconds keepAliveEvery{15};
// How long accepting pauses after an error such as running out of descriptors.
constexpr std::chrono::milliseconds acceptPause{100};

constexpr int badRequest = 400;
constexpr int forbidden = 403;
constexpr int notFound = 404;
constexpr int tooLarge = 413;
constexpr int headersTooLarge = 431;
constexpr int failed = 500;
constexpr int notServing = 503;

constexpr std::string_view streamHeader =
    "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n";

// One Server-Sent Event: each line of `data` a "data:" line, then the blank line that ends it.
std::string eventText(std::string_view data) {
    std::string text = "data: ";
    for (char c : data) {
        if (c == '\n') {
            text += "\ndata: ";
        } else {
            text += c;
        }
    }
    return text + "\n\n";
}

// How other threads reach the serving thread: posted work runs there while the server serves,
// and nothing is posted once it stops.
class Mailbox {
public:
    explicit Mailbox(net::io_context& io) : io_(&io) {}

    template <class Work>
    void post(Work work) {
        std::lock_guard lock(mutex_);
        if (io_) net::post(*io_, std::move(work));
    }
    void close() {
        std::lock_guard lock(mutex_);
        io_ = nullptr;
    }

private:
    std::mutex mutex_;
    net::io_context* io_;
};

class Connection;

}  // namespace

struct Reply::State {
    State(std::shared_ptr<Mailbox> box, std::function<void(Response)> give)
        : mailbox(std::move(box)), deliver(std::move(give)) {}
    ~State() {
        if (answered) return;
        try {
            mailbox->post([deliver = std::move(deliver)] { deliver(errorResponse(notServing, "no answer")); });
        } catch (...) {  // out of memory: the reply deadline answers instead
        }
    }

    std::shared_ptr<Mailbox> mailbox;
    std::function<void(Response)> deliver;  // serving thread
    std::atomic<bool> answered{false};
};

void Reply::operator()(Response response) const {
    if (state_->answered.exchange(true)) return;
    state_->mailbox->post(
        [deliver = state_->deliver, response = std::move(response)]() mutable { deliver(std::move(response)); });
}

void Routes::get(const std::string& path, Handler handler) { handlers_[{"GET", path}] = std::move(handler); }

void Routes::post(const std::string& path, Handler handler) { handlers_[{"POST", path}] = std::move(handler); }

void Routes::files(std::span<const EmbeddedFile> files, const Fields& headers, std::string_view index) {
    for (const auto& file : files) {
        auto serve = [file, headers](const Request&, const Reply& reply) {
            reply({.body = std::string(file.bytes),
                   .contentType = std::string(contentTypeOf(file.name)),
                   .headers = headers});
        };
        get("/" + std::string(file.name), serve);
        if (file.name == index) get("/", serve);
    }
}

void Routes::events(const std::string& path, StreamOpening opening) { streams_[path] = std::move(opening); }

void Routes::gate(const std::string& prefix, Gate gate) { gates_.emplace_back(prefix, std::move(gate)); }

std::optional<Response> Routes::refusal(const Request& request) const {
    for (const auto& [prefix, gate] : gates_) {
        if (!request.path.starts_with(prefix)) continue;
        if (auto refused = gate(request)) return refused;
    }
    return std::nullopt;
}

const Handler* Routes::handler(const std::string& method, const std::string& path) const {
    auto found = handlers_.find({method, path});
    return found == handlers_.end() ? nullptr : &found->second;
}

const StreamOpening* Routes::stream(const std::string& path) const {
    auto found = streams_.find(path);
    return found == streams_.end() ? nullptr : &found->second;
}

struct ServingCore {
    ServingCore(Routes served, Limits bounds) : routes(std::move(served)), limits(bounds) {}

    void run();
    void accept();
    void admit(tcp::socket socket);
    void closeAll();
    std::size_t streamCount() const;

    net::io_context io;  // first: outlives every socket and timer below
    tcp::acceptor acceptor{io};
    net::steady_timer acceptAgain{io};
    const Routes routes;
    const Limits limits;
    ServedAddress address;
    std::shared_ptr<Mailbox> mailbox = std::make_shared<Mailbox>(io);
    // Serving thread only. A connection is here from its accept to its destruction, and in
    // `streams` (under its path) while it serves an event stream.
    std::set<Connection*> connections;
    std::map<std::string, std::set<Connection*>> streams;
    std::thread thread;
};

namespace {

// One client connection: requests one after another, or once it asked for one, an event stream.
// Owned by the operations under way on it; close() ends them all.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(ServingCore& core, tcp::socket socket)
        : core_(core), limits_(core.limits), stream_(std::move(socket)), timer_(core.io) {
        core_.connections.insert(this);
    }
    ~Connection() { core_.connections.erase(this); }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void readRequest();
    // An event stream's next text; dropped with its client when too much waits.
    void send(std::string_view text);
    void close();

private:
    void onRequest(ErrorCode error);
    void refuse(ErrorCode error);
    void dispatch(Request request);
    void awaitReply(const Handler& handler, const Request& request);
    void answer(std::uint64_t request, Response response);
    void write(Response response);
    void openStream(const std::string& path, const StreamOpening& opening);
    void flush();
    void keepStreamAlive();

    ServingCore& core_;
    const Limits& limits_;
    beast::tcp_stream stream_;
    beast::flat_buffer buffer_;
    std::optional<http::request_parser<http::string_body>> parser_;
    http::response<http::string_body> response_;
    net::steady_timer timer_;  // the reply's deadline, or an event stream's keep-alive
    std::uint64_t requests_ = 0;
    bool awaitingReply_ = false;
    bool keepAlive_ = true;
    bool closed_ = false;
    // An event stream's: its path, the text waiting, and the text being written.
    std::string streamPath_;
    std::string backlog_;
    std::string writing_;
    bool isWriting_ = false;
    std::array<char, 512> unread_{};
};

}  // namespace

void Connection::readRequest() {
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(limits_.headerBytes));
    parser_->body_limit(limits_.bodyBytes);
    // Set once for the whole request, however its bytes trickle in.
    stream_.expires_after(limits_.requestDeadline);
    http::async_read(stream_, buffer_, *parser_,
                     [self = shared_from_this()](ErrorCode error, std::size_t) { self->onRequest(error); });
}

void Connection::onRequest(ErrorCode error) {
    if (closed_) return;
    if (error) return refuse(error);
    auto& message = parser_->get();
    Request request{
        std::string(message.method_string()), std::string(message.target()), {}, {}, std::move(message.body())};
    if (auto question = request.path.find('?'); question != std::string::npos) {
        request.query = request.path.substr(question + 1);
        request.path.resize(question);
    }
    for (const auto& field : message) request.headers.emplace_back(field.name_string(), field.value());
    keepAlive_ = message.keep_alive();
    dispatch(std::move(request));
}

// A request the parser would not take: answered and closed, or, when the client went quiet or
// away, just closed.
void Connection::refuse(ErrorCode error) {
    keepAlive_ = false;
    if (error == http::error::body_limit) {
        return write(errorResponse(tooLarge, "the body is over " + std::to_string(limits_.bodyBytes) + " bytes"));
    }
    if (error == http::error::header_limit) return write(errorResponse(headersTooLarge, "the headers are too long"));
    bool malformed = error.category() == http::make_error_code(http::error::bad_target).category() &&
                     error != http::error::end_of_stream && error != http::error::partial_message;
    if (malformed) return write(errorResponse(badRequest, "malformed request: " + error.message()));
    close();
}

void Connection::dispatch(Request request) {
    if (auto refused = core_.routes.refusal(request)) return write(std::move(*refused));
    if (const auto* opening = core_.routes.stream(request.path); opening && request.method == "GET") {
        return openStream(request.path, *opening);
    }
    const auto* handler = core_.routes.handler(request.method, request.path);
    if (!handler) return write(errorResponse(notFound, "no such endpoint"));
    if (request.method == "POST") {
        auto problem = foreignPostProblem(core_.address, request.header("Host"), request.header("Origin"),
                                          request.header("Content-Type"));
        if (problem) return write(errorResponse(forbidden, *problem));
    }
    awaitReply(*handler, request);
}

void Connection::awaitReply(const Handler& handler, const Request& request) {
    auto number = ++requests_;
    awaitingReply_ = true;
    stream_.expires_never();
    // The timer's wait is what holds the connection while the route works on its answer.
    timer_.expires_after(limits_.replyDeadline);
    timer_.async_wait([self = shared_from_this(), number](ErrorCode error) {
        if (!error) self->answer(number, errorResponse(notServing, "no answer within the deadline"));
    });
    Reply reply(std::make_shared<Reply::State>(core_.mailbox, [weak = weak_from_this(), number](Response response) {
        if (auto self = weak.lock()) self->answer(number, std::move(response));
    }));
    try {
        handler(request, reply);
    } catch (const std::exception& error) {
        answer(number, errorResponse(failed, error.what()));
    }
}

// The answer to request `request`, unless that one was answered already (late, or twice).
void Connection::answer(std::uint64_t request, Response response) {
    if (closed_ || !awaitingReply_ || request != requests_) return;
    awaitingReply_ = false;
    timer_.cancel();
    write(std::move(response));
}

void Connection::write(Response response) {
    response_ = {};
    response_.version(11);
    response_.result(static_cast<unsigned>(response.status));
    response_.set(http::field::content_type, response.contentType);
    response_.set(http::field::cache_control, "no-store");
    for (const auto& [name, value] : response.headers) response_.set(name, value);
    response_.body() = std::move(response.body);
    response_.keep_alive(keepAlive_);
    response_.prepare_payload();
    stream_.expires_after(limits_.writeDeadline);
    http::async_write(stream_, response_, [self = shared_from_this()](ErrorCode error, std::size_t) {
        if (error || !self->keepAlive_) return self->close();
        self->readRequest();
    });
}

void Connection::openStream(const std::string& path, const StreamOpening& opening) {
    if (core_.streamCount() >= limits_.eventStreams) {
        keepAlive_ = false;
        return write(errorResponse(notServing, "too many event streams open"));
    }
    std::string text(streamHeader);
    try {
        for (const auto& data : opening()) text += eventText(data);
    } catch (const std::exception& error) {
        keepAlive_ = false;
        return write(errorResponse(failed, error.what()));
    }
    streamPath_ = path;
    core_.streams[path].insert(this);
    ErrorCode ignored;
    stream_.socket().set_option(net::socket_base::send_buffer_size(limits_.streamSocketBuffer), ignored);
    // The client sends nothing more: anything it does send, or its end, closes the stream at once.
    stream_.expires_never();
    stream_.async_read_some(net::buffer(unread_),
                            [self = shared_from_this()](ErrorCode, std::size_t) { self->close(); });
    send(text);
}

void Connection::send(std::string_view text) {
    if (closed_) return;
    if (backlog_.size() + text.size() > limits_.streamBacklog) return close();
    backlog_ += text;
    if (!isWriting_) flush();
}

void Connection::flush() {
    isWriting_ = true;
    writing_.swap(backlog_);
    backlog_.clear();
    // The read under way keeps its own (no) deadline: this one is the write's alone.
    stream_.expires_after(limits_.writeDeadline);
    net::async_write(stream_, net::buffer(writing_), [self = shared_from_this()](ErrorCode error, std::size_t) {
        self->isWriting_ = false;
        if (error) return self->close();
        if (!self->backlog_.empty()) return self->flush();
        self->keepStreamAlive();
    });
}

void Connection::keepStreamAlive() {
    if (closed_) return;
    timer_.expires_after(keepAliveEvery);
    timer_.async_wait([self = shared_from_this()](ErrorCode error) {
        if (!error) self->send(": keep-alive\n\n");
    });
}

void Connection::close() {
    if (closed_) return;
    closed_ = true;
    if (!streamPath_.empty()) core_.streams[streamPath_].erase(this);
    timer_.cancel();
    stream_.close();
}

void ServingCore::run() {
    for (;;) {
        try {
            io.run();
            return;
        } catch (const std::exception&) {  // out of memory in one connection's work: serve the others on
        }
    }
}

void ServingCore::accept() {
    acceptor.async_accept([this](ErrorCode error, tcp::socket socket) {
        if (!acceptor.is_open()) return;
        if (!error) {
            admit(std::move(socket));
            return accept();
        }
        acceptAgain.expires_after(acceptPause);
        acceptAgain.async_wait([this](ErrorCode waited) {
            if (!waited) accept();
        });
    });
}

void ServingCore::admit(tcp::socket socket) {
    if (connections.size() >= limits.connections) return;  // the socket closes with this scope
    std::make_shared<Connection>(*this, std::move(socket))->readRequest();
}

void ServingCore::closeAll() {
    ErrorCode ignored;
    acceptor.close(ignored);
    acceptAgain.cancel();
    // Closing cancels a connection's operations; their handlers, run after this, release it.
    for (auto* connection : std::vector(connections.begin(), connections.end())) connection->close();
}

std::size_t ServingCore::streamCount() const {
    std::size_t count = 0;
    for (const auto& [path, open] : streams) count += open.size();
    return count;
}

HttpServer::HttpServer(Routes routes, const std::string& address, int port, Limits limits)
    : core_(std::make_unique<ServingCore>(std::move(routes), limits)) {
    auto& acceptor = core_->acceptor;
    ErrorCode error;
    tcp::resolver resolver(core_->io);
    auto found =
        resolver.resolve(address, std::to_string(port), tcp::resolver::numeric_service | tcp::resolver::passive, error);
    if (!error && found.empty()) error = net::error::host_not_found;
    if (!error) acceptor.open(found.begin()->endpoint().protocol(), error);
    if (!error) acceptor.set_option(net::socket_base::reuse_address(true), error);
    if (!error) acceptor.bind(found.begin()->endpoint(), error);
    if (!error) acceptor.listen(net::socket_base::max_listen_connections, error);
    if (error)
        throw std::runtime_error("cannot serve at " + address + ":" + std::to_string(port) + ": " + error.message());
    address_ = {address, acceptor.local_endpoint().port()};
    core_->address = address_;
    core_->accept();
    core_->thread = std::thread([core = core_.get()] { core->run(); });
}

HttpServer::~HttpServer() {
    core_->mailbox->close();
    net::post(core_->io, [core = core_.get()] { core->closeAll(); });
    core_->thread.join();
}

void HttpServer::publish(const std::string& path, std::string data) {
    core_->mailbox->post([core = core_.get(), path, text = eventText(data)] {
        auto open = core->streams.find(path);
        if (open == core->streams.end()) return;
        // send() may drop a stream, and with it its place in the set.
        for (auto* stream : std::vector(open->second.begin(), open->second.end())) stream->send(text);
    });
}

}  // namespace kelvane::web
