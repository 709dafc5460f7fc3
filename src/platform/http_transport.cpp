#include "platform/http_transport.h"

#include <curl/curl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/charset.h"
#include "platform/event_loop.h"
#include "platform/text.h"

namespace gw {

namespace {

using Clock = std::chrono::steady_clock;

// A monotonic clock of a few milliseconds' resolution, cheaper to read than the precise one; it
// times the stall limits, which are hundreds of milliseconds or more.
struct CoarseClock {
  using duration = std::chrono::nanoseconds;
  using time_point = std::chrono::time_point<CoarseClock, duration>;
  static time_point now() noexcept {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
    return time_point(std::chrono::seconds(ts.tv_sec) + std::chrono::nanoseconds(ts.tv_nsec));
  }
};

void EnsureCurlInitialized() {
  static const CURLcode rc = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (rc != CURLE_OK) {
    throw Error(httperr::kInternal, "HttpTransport", "The HTTP library could not start.");
  }
}

struct EasyDeleter {
  void operator()(CURL* h) const noexcept { curl_easy_cleanup(h); }
};
using EasyHandle = std::unique_ptr<CURL, EasyDeleter>;
struct MultiDeleter {
  void operator()(CURLM* m) const noexcept { curl_multi_cleanup(m); }
};
using MultiHandle = std::unique_ptr<CURLM, MultiDeleter>;
struct SlistDeleter {
  void operator()(curl_slist* l) const noexcept { curl_slist_free_all(l); }
};
using Slist = std::unique_ptr<curl_slist, SlistDeleter>;

}  // namespace

// The thread's curl multi handle, driven by the thread's EventLoop: curl tells which sockets to
// watch and when to call it back; the loop's I/O callbacks and one timer hand control back.
class CurlMultiDriver {
 public:
  CurlMultiDriver();
  ~CurlMultiDriver();

  void Add(CURL* easy, std::weak_ptr<HttpTransport> transport);
  // Takes the handle out without an event; nothing if it is not in.
  void Remove(CURL* easy);
  bool Idle() const noexcept { return active_.empty(); }

  // Every connection socket of the thread's handles is opened and closed through these (curl's
  // open and close callbacks), so the driver knows which sockets it may keep watched while
  // their connection waits for its next request.
  static curl_socket_t OpenSocket(void*, curlsocktype, curl_sockaddr* address);
  static int CloseSocket(void*, curl_socket_t s);

 private:
  using Active = std::unordered_map<CURL*, std::weak_ptr<HttpTransport>>;

  static int SocketCallback(CURL*, curl_socket_t s, int what, void* userp, void*);
  static int TimerCallback(CURLM*, long timeout_ms, void* userp);
  void Act(curl_socket_t s, int flags);
  void DeliverFinished();
  // Takes a transfer's entry out of `active_`.
  void Release(Active::iterator it);
  // Stops watching `s` (the loop takes it out of its set).
  void Forget(curl_socket_t s);

  EventLoop& loop_;
  MultiHandle multi_;
  Active active_;
  // Entries of `active_` taken out, kept for the next transfers (no allocation per request).
  static constexpr std::size_t kMaxSpareEntries = 64;
  std::vector<Active::node_type> spare_entries_;
  // The sockets the loop watches for curl. A connection that goes idle between requests stays
  // watched, idle in the loop's set: its next request costs no registration.
  std::unordered_map<curl_socket_t, EventLoop::Id> watches_;
  // Open connection sockets (opened and to be closed through the callbacks above).
  std::unordered_set<curl_socket_t> connections_;
  EventLoop::Id timer_ = 0;
  bool delivery_posted_ = false;
};

namespace {

// What a curl handle keeps from one request to the next: every option but the address, the
// headers, the body and the pointers to the request's own state.
struct HandleOptions {
  std::string method;
  bool has_body = false;
  long resolve_ms = 0, connect_ms = 0, send_ms = 0, receive_ms = 0;
  std::string user_agent;
  bool proxy_possible = false;  // a proxy set, or named by the environment
  bool server_credentials = false, proxy_credentials = false;
  std::string user, password, proxy_user, proxy_password;
  HttpTransportSettings settings;
};

// Whether the environment names a proxy that curl may use when no proxy is set (curl reads
// these variables itself at every transfer; a superset of its names is fine here).
bool EnvironmentNamesAProxy() {
  static constexpr std::string_view kNames[] = {
      "http_proxy=", "HTTP_PROXY=", "https_proxy=", "HTTPS_PROXY=", "all_proxy=", "ALL_PROXY="};
  for (char** e = environ; e && *e; ++e) {
    const char* entry = *e;
    if (entry[0] != 'h' && entry[0] != 'H' && entry[0] != 'a' && entry[0] != 'A') continue;
    for (std::string_view name : kNames) {
      if (std::strncmp(entry, name.data(), name.size()) == 0 && entry[name.size()] != '\0') {
        return true;
      }
    }
  }
  return false;
}

// Bodies that responses no longer need, kept for the next responses of the thread: a page's
// body is then written into memory that is already there instead of a fresh block each time.
class SpareBodies {
 public:
  static constexpr std::size_t kKept = 8;
  static constexpr std::size_t kSmallest = 1024, kLargest = 256 * 1024;

  // Gives `body` (empty) the spare buffer that best fits `want` bytes, when one is kept.
  void Take(std::string& body, std::size_t want) {
    std::size_t best = spare_.size();
    for (std::size_t k = 0; k < spare_.size(); ++k) {
      const std::size_t c = spare_[k].capacity();
      if (c >= want && (best == spare_.size() || c < spare_[best].capacity())) best = k;
    }
    if (best == spare_.size()) return;
    body.swap(spare_[best]);
    spare_[best].swap(spare_.back());
    spare_.pop_back();
  }
  void Keep(std::string&& body) noexcept {
    const std::size_t c = body.capacity();
    if (c < kSmallest || c > kLargest || spare_.size() >= kKept) return;
    body.clear();
    spare_.push_back(std::move(body));  // no allocation: reserved below
  }
  SpareBodies() { spare_.reserve(kKept); }

 private:
  std::vector<std::string> spare_;
};

// Set when the thread's spares are gone: a response destroyed later (by a thread's or the
// program's exit) frees its body itself.
thread_local bool spares_gone = false;

SpareBodies* Spares() {
  thread_local struct Holder {
    SpareBodies spare;
    ~Holder() { spares_gone = true; }
  } holder;
  return spares_gone ? nullptr : &holder.spare;
}

// The "Accept-Encoding" line curl itself would send for CURLOPT_ACCEPT_ENCODING "": every
// coding this libcurl decodes, in its order.
const std::string& AcceptEncodingLine() {
  static const std::string line = [] {
    const curl_version_info_data* v = curl_version_info(CURLVERSION_NOW);
    std::string codings;
    const auto add = [&codings](const char* coding) {
      if (!codings.empty()) codings += ", ";
      codings += coding;
    };
    if (v->features & CURL_VERSION_LIBZ) {
      add("deflate");
      add("gzip");
    }
    if (v->features & CURL_VERSION_BROTLI) add("br");
#ifdef CURL_VERSION_ZSTD
    if (v->features & CURL_VERSION_ZSTD) add("zstd");
#endif
    return codings.empty() ? std::string() : "Accept-Encoding: " + codings;
  }();
  return line;
}

// An easy handle and the options it was last configured with (none: it holds the defaults).
struct PooledHandle {
  EasyHandle handle;
  std::optional<HandleOptions> options;
};

// Idle easy handles of the thread, so that a new request reuses the connections, the DNS entries
// and the TLS sessions of an old one, and, when it is configured as the old one was, its options.
class HandlePool {
 public:
  ~HandlePool() = default;
  PooledHandle Take() {
    if (!idle_.empty()) {
      PooledHandle h = std::move(idle_.back());
      idle_.pop_back();
      return h;
    }
    EnsureCurlInitialized();
    EasyHandle h(curl_easy_init());
    if (!h) throw Error(httperr::kOutOfMemory, "HttpTransport", "Out of memory");
    return PooledHandle{std::move(h), std::nullopt};
  }
  void Give(PooledHandle h) {
    if (idle_.size() < kMaxIdle) idle_.push_back(std::move(h));
  }
  void Clear() { idle_.clear(); }

 private:
  static constexpr std::size_t kMaxIdle = 16;
  std::vector<PooledHandle> idle_;
};

struct ThreadState {
  HandlePool pool;
  std::unique_ptr<CurlMultiDriver> driver;
  ~ThreadState();
};
thread_local bool g_state_gone = false;
// The thread's driver while it lives (the socket callbacks reach it through this).
thread_local CurlMultiDriver* g_driver = nullptr;
ThreadState::~ThreadState() {
  driver.reset();
  g_state_gone = true;
}
ThreadState& State() {
  // The loop first: thread-local objects go in the reverse order of their making, and the driver
  // unwatches its sockets in the loop when it goes.
  EventLoop::Current();
  thread_local ThreadState state;
  return state;
}
CurlMultiDriver& Driver() {
  ThreadState& s = State();
  if (!s.driver) s.driver = std::make_unique<CurlMultiDriver>();
  return *s.driver;
}

long ToCurlMillis(long ms) { return ms > 0 ? ms : static_cast<long>(INT_MAX); }

std::string Trimmed(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() &&
         (s.back() == ' ' || s.back() == '\t' || s.back() == '\r' || s.back() == '\n')) {
    s.remove_suffix(1);
  }
  return std::string(s);
}

// A WinHTTP-style bypass list as curl's comma-separated "no proxy" list.
std::string NoProxyList(std::string_view bypass) {
  std::string out;
  std::string item;
  const auto flush = [&] {
    if (item.empty()) return;
    std::string host = item;
    item.clear();
    if (text::EqualsNoCase(host, "<local>"))
      host = "localhost,127.0.0.1,::1";
    else if (host.rfind("*.", 0) == 0)
      host = host.substr(1);
    if (!out.empty()) out += ',';
    out += host;
  };
  for (char c : bypass) {
    if (c == ';' || c == ',' || c == ' ' || c == '\t')
      flush();
    else
      item += c;
  }
  flush();
  return out;
}

}  // namespace

struct HttpTransport::Impl {
  // Request.
  std::string method = "GET";
  std::string url;
  bool async = false;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string user, password, proxy_user, proxy_password;
  bool server_credentials = false, proxy_credentials = false;
  long resolve_ms = 0, connect_ms = 60000, send_ms = 30000, receive_ms = 30000;
  std::string user_agent;
  // A proxy is set or the environment names one. The agent goes out as one of the request's
  // headers (curl formats its own agent line twice per request); it is given to curl as well
  // only when a proxy may be used, for the CONNECT. When none may be, curl is told so and does
  // not read the environment at every transfer.
  bool proxy_possible = false;
  HttpTransportSettings settings;
  std::string body;
  bool has_body = false;

  // Transfer.
  EasyHandle easy;
  Slist header_list;
  // What `header_list` was made from; a request sending the same headers keeps it.
  std::vector<std::pair<std::string, std::string>> listed_headers;
  bool listed_expect = false;
  std::string listed_user_agent;
  // The handle's pointers into this request (its buffers, its header list) are set: a handle
  // that came from the pool or was reset points elsewhere or nowhere.
  bool points_here = false;
  bool listed = false;
  char error_buffer[CURL_ERROR_SIZE] = {};
  // The options `easy` was last configured with; none: it holds curl's defaults.
  std::optional<HandleOptions> configured;
  bool pending = false;  // asynchronous, in the multi handle
  bool in_driver = false;
  bool complete = false;  // a response is in
  bool uploading = false;
  bool connected = false;
  bool stalled = false;
  curl_off_t last_up = 0, last_down = 0;
  CoarseClock::time_point last_activity;

  // Response of the final hop.
  long status = 0;
  std::string status_text;
  std::string header_text;
  std::string response_body;
  std::string content_type;

  void ResetResponse() {
    complete = false;
    status = 0;
    status_text.clear();
    header_text.clear();
    response_body.clear();
    content_type.clear();
  }
  void Touch() { last_activity = CoarseClock::now(); }

  // Sets the request's options on `easy`; those the handle kept from a request configured alike
  // are left as they are.
  void Configure();
  bool ConfiguredAsNow() const;
  void ConfigureHandle();
  // Makes `header_list` from `headers` (and an empty "Expect:" before a body).
  void MakeHeaderList(bool body_expected);
  // Reads the outcome after curl finished; fills an error or nothing.
  std::optional<Error> Finish(CURLcode rc);
  Error Failure(CURLcode rc) const;
  void RequireResponse(std::string_view member) const;

  static size_t OnHeader(char* data, size_t size, size_t n, void* userp);
  static size_t OnBody(char* data, size_t size, size_t n, void* userp);
  static int OnProgress(void* userp, curl_off_t dltotal, curl_off_t dlnow, curl_off_t ultotal,
                        curl_off_t ulnow);
  static int OnPrereq(void* userp, char*, char*, int, int);
};

// ---- CurlMultiDriver ----------------------------------------------------------------------------

CurlMultiDriver::CurlMultiDriver() : loop_(EventLoop::Current()) {
  EnsureCurlInitialized();
  multi_.reset(curl_multi_init());
  if (!multi_) throw Error(httperr::kOutOfMemory, "HttpTransport", "Out of memory");
  curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, &CurlMultiDriver::SocketCallback);
  curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, &CurlMultiDriver::TimerCallback);
  curl_multi_setopt(multi_.get(), CURLMOPT_TIMERDATA, this);
  // Keep idle connections for reuse whatever the number of transfers at the moment (curl's
  // default follows the number of handles added, which drops between one request and the next).
  curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, 256L);
  g_driver = this;
}

CurlMultiDriver::~CurlMultiDriver() {
  // The connections close with the multi handle, after this: their sockets are no longer watched.
  g_driver = nullptr;
  for (auto& [easy, weak] : active_) {
    curl_multi_remove_handle(multi_.get(), easy);
    if (auto t = weak.lock()) {
      t->impl_->pending = false;
      t->impl_->in_driver = false;
    }
  }
  active_.clear();
  for (const auto& [s, id] : watches_) loop_.UnwatchFd(id);
  if (timer_) loop_.StopTimer(timer_);
}

void CurlMultiDriver::Add(CURL* easy, std::weak_ptr<HttpTransport> transport) {
  if (spare_entries_.empty()) {
    active_[easy] = std::move(transport);
  } else {
    Active::node_type entry = std::move(spare_entries_.back());
    spare_entries_.pop_back();
    entry.key() = easy;
    entry.mapped() = std::move(transport);
    const auto placed = active_.insert(std::move(entry));
    if (!placed.inserted) placed.position->second = std::move(placed.node.mapped());
  }
  const CURLMcode rc = curl_multi_add_handle(multi_.get(), easy);
  if (rc != CURLM_OK) {
    active_.erase(easy);
    throw Error(httperr::kInternal, "HttpTransport",
                std::string("The request could not be started: ") + curl_multi_strerror(rc));
  }
  // Start at once (connect, send what the socket takes) rather than at the next pass of the
  // loop; this never blocks. Whatever finishes is delivered from DoEvents, never from here.
  int running = 0;
  curl_multi_socket_action(multi_.get(), CURL_SOCKET_TIMEOUT, 0, &running);
  if (!delivery_posted_) {
    delivery_posted_ = true;
    // Nothing captured (no allocation); the thread's driver of that moment delivers.
    loop_.Post([] {
      if (!g_driver) return;
      g_driver->delivery_posted_ = false;
      g_driver->DeliverFinished();
    });
  }
}

void CurlMultiDriver::Remove(CURL* easy) {
  const auto it = active_.find(easy);
  if (it == active_.end()) return;
  Release(it);
  curl_multi_remove_handle(multi_.get(), easy);
}

void CurlMultiDriver::Release(Active::iterator it) {
  Active::node_type entry = active_.extract(it);
  entry.mapped().reset();
  if (spare_entries_.size() < kMaxSpareEntries) spare_entries_.push_back(std::move(entry));
}

int CurlMultiDriver::SocketCallback(CURL*, curl_socket_t s, int what, void* userp, void*) {
  auto* self = static_cast<CurlMultiDriver*>(userp);
  const auto it = self->watches_.find(s);
  if (what == CURL_POLL_REMOVE) {
    if (it == self->watches_.end()) return 0;
    if (self->connections_.count(s) != 0) {
      // A connection kept for reuse: idle until its next request, or until it is closed.
      self->loop_.IdleFd(it->second);
    } else {
      self->loop_.UnwatchFd(it->second);
      self->watches_.erase(it);
    }
    return 0;
  }
  const bool want_read = what == CURL_POLL_IN || what == CURL_POLL_INOUT;
  const bool want_write = what == CURL_POLL_OUT || what == CURL_POLL_INOUT;
  if (it != self->watches_.end()) {
    self->loop_.UpdateFd(it->second, want_read, want_write);
  } else {
    self->watches_[s] =
        self->loop_.WatchFd(s, want_read, want_write, [self, s](bool readable, bool writable) {
          self->Act(s, (readable ? CURL_CSELECT_IN : 0) | (writable ? CURL_CSELECT_OUT : 0));
        });
  }
  return 0;
}

void CurlMultiDriver::Forget(curl_socket_t s) {
  const auto it = watches_.find(s);
  if (it == watches_.end()) return;
  loop_.UnwatchFd(it->second);
  watches_.erase(it);
}

curl_socket_t CurlMultiDriver::OpenSocket(void*, curlsocktype, curl_sockaddr* address) {
  const curl_socket_t s =
      ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  if (s != CURL_SOCKET_BAD && g_driver) {
    // A watch still held under this number belongs to a socket closed without a word: gone.
    g_driver->Forget(s);
    g_driver->connections_.insert(s);
  }
  return s;
}

int CurlMultiDriver::CloseSocket(void*, curl_socket_t s) {
  if (g_driver) {
    g_driver->Forget(s);  // unwatched before it is closed
    g_driver->connections_.erase(s);
  }
  return ::close(s);
}

int CurlMultiDriver::TimerCallback(CURLM*, long timeout_ms, void* userp) {
  auto* self = static_cast<CurlMultiDriver*>(userp);
  if (timeout_ms < 0) {
    if (self->timer_) self->loop_.StopTimer(self->timer_);
    self->timer_ = 0;
    return 0;
  }
  // curl moves its one deadline often (every transfer started or finished): the same timer.
  if (self->timer_ && self->loop_.RescheduleTimer(self->timer_, EventLoop::Millis(timeout_ms))) {
    return 0;
  }
  self->timer_ = self->loop_.StartTimer(
      EventLoop::Millis(timeout_ms),
      [self] {
        self->timer_ = 0;
        self->Act(CURL_SOCKET_TIMEOUT, 0);
      },
      false);
  return 0;
}

void CurlMultiDriver::Act(curl_socket_t s, int flags) {
  int running = 0;
  curl_multi_socket_action(multi_.get(), s, flags, &running);
  DeliverFinished();
}

void CurlMultiDriver::DeliverFinished() {
  // Collect first: a completion handler may start, abandon or destroy other transfers, or the
  // driver itself (nothing of `this` is touched once the events begin). One transfer is the
  // usual case and is kept apart from the list.
  using Done = std::pair<std::weak_ptr<HttpTransport>, CURLcode>;
  Done first;
  std::vector<Done> more;
  bool any = false;
  int left = 0;
  while (CURLMsg* msg = curl_multi_info_read(multi_.get(), &left)) {
    if (msg->msg != CURLMSG_DONE) continue;
    CURL* easy = msg->easy_handle;
    const CURLcode rc = msg->data.result;
    const auto it = active_.find(easy);
    if (it == active_.end()) continue;
    if (!any) {
      first = Done(std::move(it->second), rc);
      any = true;
    } else {
      more.emplace_back(std::move(it->second), rc);
    }
    Release(it);
    curl_multi_remove_handle(multi_.get(), easy);
  }
  if (!any) return;
  const auto deliver = [](const Done& d) {
    const std::shared_ptr<HttpTransport> t = d.first.lock();  // alive until its events are raised
    if (!t || !t->impl_->pending) return;
    t->impl_->pending = false;
    t->impl_->in_driver = false;
    if (auto failure = t->impl_->Finish(d.second)) {
      t->OnError.Emit(failure->Number(), failure->Description());
    } else {
      t->OnResponseFinished.Emit();
    }
  };
  deliver(first);
  for (const Done& d : more) deliver(d);
}

// ---- HttpTransport --------------------------------------------------------------------------

HttpTransport::HttpTransport() : impl_(std::make_unique<Impl>()) {}

std::shared_ptr<HttpTransport> HttpTransport::Create() {
  return std::shared_ptr<HttpTransport>(new HttpTransport());
}

HttpTransport::~HttpTransport() {
  if (!impl_->easy) return;
  if (g_state_gone) return;  // the thread's handles are gone; ours is freed with it
  if (impl_->in_driver && State().driver) State().driver->Remove(impl_->easy.get());
  // The handle keeps its options for the next request configured alike; the pointers into this
  // request that curl might write through go now (a body is set again before every send).
  CURL* h = impl_->easy.get();
  curl_easy_setopt(h, CURLOPT_ERRORBUFFER, nullptr);
  curl_easy_setopt(h, CURLOPT_HTTPHEADER, nullptr);
  State().pool.Give(PooledHandle{std::move(impl_->easy), std::move(impl_->configured)});
}

void HttpTransport::Abort() {
  if (impl_->in_driver && !g_state_gone && State().driver) {
    State().driver->Remove(impl_->easy.get());
  }
  impl_->in_driver = false;
  impl_->pending = false;
}

bool HttpTransport::IsPending() const noexcept { return impl_->pending; }

void HttpTransport::Open(std::string_view verb, std::string_view url, bool async) {
  Abort();
  impl_->method = text::ToUpper(verb);
  impl_->url = std::string(url);
  impl_->async = async;
  impl_->headers.clear();
  impl_->body.clear();
  impl_->has_body = false;
  impl_->ResetResponse();
}

void HttpTransport::SetRequestHeader(std::string_view name, std::string_view value) {
  impl_->headers.emplace_back(std::string(name), std::string(value));
}

void HttpTransport::SetCredentials(std::string_view user, std::string_view password,
                                   CredentialTarget target) {
  if (target == CredentialTarget::kProxy) {
    impl_->proxy_user = std::string(user);
    impl_->proxy_password = std::string(password);
    impl_->proxy_credentials = true;
  } else {
    impl_->user = std::string(user);
    impl_->password = std::string(password);
    impl_->server_credentials = true;
  }
}

void HttpTransport::ClearCredentials() {
  impl_->user.clear();
  impl_->password.clear();
  impl_->proxy_user.clear();
  impl_->proxy_password.clear();
  impl_->server_credentials = false;
  impl_->proxy_credentials = false;
}

void HttpTransport::SetTimeouts(long resolve_ms, long connect_ms, long send_ms, long receive_ms) {
  impl_->resolve_ms = resolve_ms;
  impl_->connect_ms = connect_ms;
  impl_->send_ms = send_ms;
  impl_->receive_ms = receive_ms;
}

void HttpTransport::SetUserAgent(std::string_view user_agent) {
  if (impl_->user_agent != user_agent) impl_->user_agent = user_agent;
}

void HttpTransport::SetSettings(HttpTransportSettings settings) {
  impl_->settings = std::move(settings);
}

const std::string& HttpTransport::Url() const noexcept { return impl_->url; }

void HttpTransport::Send() {
  impl_->has_body = false;
  impl_->body.clear();
  Start();
}

void HttpTransport::Send(std::string_view body) {
  impl_->body = std::string(body);
  impl_->has_body = true;
  Start();
}

void HttpTransport::CloseIdleConnections() {
  if (g_state_gone) return;
  ThreadState& s = State();
  s.pool.Clear();
  if (s.driver && s.driver->Idle()) s.driver.reset();
}

void HttpTransport::Start() {
  Impl& m = *impl_;
  Abort();
  m.ResetResponse();
  const std::string scheme = text::ToLower(m.url.substr(0, m.url.find(':')));
  if (scheme != "http" && scheme != "https") {
    throw Error(
        httperr::kUnrecognizedScheme, "HttpTransport",
        "The request to " + m.url + " failed: only http and https addresses can be fetched.");
  }
  if (!m.easy) {
    PooledHandle pooled = State().pool.Take();
    m.easy = std::move(pooled.handle);
    m.configured = std::move(pooled.options);
    m.points_here = false;
  }
  m.Configure();
  if (!m.async) {
    const CURLcode rc = curl_easy_perform(m.easy.get());
    if (auto failure = m.Finish(rc)) throw *failure;
    return;
  }
  m.pending = true;
  try {
    Driver().Add(m.easy.get(), weak_from_this());
  } catch (...) {
    m.pending = false;
    throw;
  }
  m.in_driver = true;
}

bool HttpTransport::WaitForResponse(long seconds) {
  if (!impl_->pending) return true;
  EventLoop::Current().RunUntil([this] { return !impl_->pending; },
                                std::chrono::seconds(std::max(0L, seconds)),
                                EventLoop::Millis(200));
  return !impl_->pending;
}

void HttpTransport::Impl::RequireResponse(std::string_view member) const {
  if (!complete) {
    throw Error(httperr::kResponseNotReady, "HttpTransport." + std::string(member),
                "The data necessary to complete this operation is not yet available.");
  }
}

long HttpTransport::Status() const {
  impl_->RequireResponse("Status");
  return impl_->status;
}

std::string HttpTransport::StatusText() const {
  impl_->RequireResponse("StatusText");
  return impl_->status_text;
}

std::string HttpTransport::GetAllResponseHeaders() const {
  impl_->RequireResponse("GetAllResponseHeaders");
  return impl_->header_text;
}

std::string HttpTransport::ResponseText() const {
  impl_->RequireResponse("ResponseText");
  return DecodeToUtf8(impl_->response_body, CharsetFromContentType(impl_->content_type)).text;
}

std::string HttpTransport::ContentType() const {
  impl_->RequireResponse("ContentType");
  return impl_->content_type;
}

const std::string& HttpTransport::ResponseBody() const {
  impl_->RequireResponse("ResponseBody");
  return impl_->response_body;
}

void HttpTransport::RecycleBody(std::string&& body) noexcept {
  if (SpareBodies* spares = Spares()) spares->Keep(std::move(body));
}

std::string HttpTransport::TakeResponseBody() {
  impl_->RequireResponse("ResponseBody");
  return std::move(impl_->response_body);
}

// ---- Impl -----------------------------------------------------------------------------------

bool HttpTransport::Impl::ConfiguredAsNow() const {
  // A handle that authenticated keeps what it negotiated until it is reset: every request with
  // credentials starts from a reset handle, as a new one would.
  if (!configured || server_credentials || proxy_credentials) return false;
  const HandleOptions& o = *configured;
  return o.method == method && o.has_body == has_body && o.resolve_ms == resolve_ms &&
         o.connect_ms == connect_ms && o.send_ms == send_ms && o.receive_ms == receive_ms &&
         o.user_agent == user_agent && o.proxy_possible == proxy_possible &&
         o.server_credentials == server_credentials && o.proxy_credentials == proxy_credentials &&
         o.user == user && o.password == password && o.proxy_user == proxy_user &&
         o.proxy_password == proxy_password && o.settings == settings;
}

void HttpTransport::Impl::Configure() {
  CURL* h = easy.get();
  error_buffer[0] = '\0';
  stalled = uploading = connected = false;
  last_up = last_down = 0;
  Touch();

  proxy_possible = !settings.proxy.empty() || EnvironmentNamesAProxy();
  if (!ConfiguredAsNow()) {
    if (configured) curl_easy_reset(h);
    configured.reset();
    points_here = false;
    ConfigureHandle();
    configured =
        HandleOptions{method,     has_body,   resolve_ms,     connect_ms,         send_ms,
                      receive_ms, user_agent, proxy_possible, server_credentials, proxy_credentials,
                      user,       password,   proxy_user,     proxy_password,     settings};
  }

  // What belongs to this request alone.
  curl_easy_setopt(h, CURLOPT_URL, url.c_str());
  if (!points_here) {
    curl_easy_setopt(h, CURLOPT_ERRORBUFFER, error_buffer);
    curl_easy_setopt(h, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(h, CURLOPT_XFERINFODATA, this);
    curl_easy_setopt(h, CURLOPT_PREREQDATA, this);
  }
  if (method != "GET" && method != "HEAD" && (has_body || method == "POST")) {
    curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(h, CURLOPT_POSTFIELDS, body.data());
  }

  // Headers, in the order they were set. The body's length is always its real length, and no
  // "Expect: 100-continue" round trip is made.
  const bool body_expected = has_body || method == "POST";
  if (!(listed && listed_expect == body_expected && listed_user_agent == user_agent &&
        listed_headers == headers)) {
    MakeHeaderList(body_expected);
    points_here = false;
  }
  if (!points_here) curl_easy_setopt(h, CURLOPT_HTTPHEADER, header_list.get());
  points_here = true;
}

void HttpTransport::Impl::MakeHeaderList(bool body_expected) {
  listed = false;
  curl_slist* list = nullptr;
  const auto append = [&list](const char* line) {
    curl_slist* grown = curl_slist_append(list, line);
    if (!grown) {
      curl_slist_free_all(list);
      throw Error(httperr::kOutOfMemory, "HttpTransport", "Out of memory");
    }
    list = grown;
  };
  bool has_expect = false, has_agent = false, has_encoding = false;
  for (const auto& [name, value] : headers) {
    if (text::EqualsNoCase(name, "Expect")) has_expect = true;
    if (text::EqualsNoCase(name, "User-Agent")) has_agent = true;
    if (text::EqualsNoCase(name, "Accept-Encoding")) has_encoding = true;
  }
  // The agent and the codings curl decodes, where curl would have put its own lines (a header
  // of the request's own overrides them, as it overrides curl's).
  if (!has_agent && !user_agent.empty()) append(("User-Agent: " + user_agent).c_str());
  if (!has_encoding && !AcceptEncodingLine().empty()) append(AcceptEncodingLine().c_str());
  for (const auto& [name, value] : headers) {
    if (text::EqualsNoCase(name, "Content-Length")) continue;
    append((value.empty() ? name + ";" : name + ": " + value).c_str());
  }
  // curl asks for "100-continue" only before a body.
  if (!has_expect && body_expected) append("Expect:");
  header_list.reset(list);
  listed_headers = headers;
  listed_expect = body_expected;
  listed_user_agent = user_agent;
  listed = true;
}

void HttpTransport::Impl::ConfigureHandle() {
  CURL* h = easy.get();
  curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(h, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(h, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(h, CURLOPT_ACCEPT_ENCODING, "");  // every coding curl decodes
  curl_easy_setopt(h, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(h, CURLOPT_BUFFERSIZE, 64L * 1024);  // most pages in one read

  curl_easy_setopt(h, CURLOPT_HEADERFUNCTION, &Impl::OnHeader);
  curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, &Impl::OnBody);
  curl_easy_setopt(h, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(h, CURLOPT_XFERINFOFUNCTION, &Impl::OnProgress);
  curl_easy_setopt(h, CURLOPT_PREREQFUNCTION, &Impl::OnPrereq);
  curl_easy_setopt(h, CURLOPT_OPENSOCKETFUNCTION, &CurlMultiDriver::OpenSocket);
  curl_easy_setopt(h, CURLOPT_CLOSESOCKETFUNCTION, &CurlMultiDriver::CloseSocket);

  // Resolving and connecting share one limit.
  const long connect_limit = connect_ms > 0 ? connect_ms + std::max(resolve_ms, 0L) : 0;
  curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, ToCurlMillis(connect_limit));
  // A backstop for the stall limits, and a wake-up at least once a second while one runs.
  const long stall_ms = std::max(send_ms, receive_ms);
  if (send_ms > 0 && receive_ms > 0) {
    curl_easy_setopt(h, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(h, CURLOPT_LOW_SPEED_TIME, std::max(1L, (stall_ms + 999) / 1000));
  }

  // The method; the body itself is set for each request.
  if (method == "GET") {
    curl_easy_setopt(h, CURLOPT_HTTPGET, 1L);
  } else if (method == "HEAD") {
    curl_easy_setopt(h, CURLOPT_NOBODY, 1L);
  } else {
    if (method != "POST") curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, method.c_str());
    if (has_body || method == "POST") {
      curl_easy_setopt(h, CURLOPT_POST, 1L);
    } else {
      curl_easy_setopt(h, CURLOPT_HTTPGET, 1L);
    }
  }
  if (proxy_possible && !user_agent.empty()) {
    curl_easy_setopt(h, CURLOPT_USERAGENT, user_agent.c_str());
  }

  if (server_credentials) {
    curl_easy_setopt(h, CURLOPT_USERNAME, user.c_str());
    curl_easy_setopt(h, CURLOPT_PASSWORD, password.c_str());
    curl_easy_setopt(h, CURLOPT_HTTPAUTH, CURLAUTH_ANY);
  }
  if (!proxy_possible) {
    curl_easy_setopt(h, CURLOPT_PROXY, "");
    curl_easy_setopt(h, CURLOPT_NOPROXY, "");
  } else if (!settings.proxy.empty()) {
    curl_easy_setopt(h, CURLOPT_PROXY, settings.proxy.c_str());
    const std::string no_proxy = NoProxyList(settings.proxy_bypass);
    curl_easy_setopt(h, CURLOPT_NOPROXY, no_proxy.c_str());  // copied by curl
  }
  if (proxy_credentials) {
    curl_easy_setopt(h, CURLOPT_PROXYUSERNAME, proxy_user.c_str());
    curl_easy_setopt(h, CURLOPT_PROXYPASSWORD, proxy_password.c_str());
    curl_easy_setopt(h, CURLOPT_PROXYAUTH, CURLAUTH_ANY);
  }
  const long verify = settings.ignore_certificate_errors ? 0L : 1L;
  curl_easy_setopt(h, CURLOPT_SSL_VERIFYPEER, verify);
  curl_easy_setopt(h, CURLOPT_SSL_VERIFYHOST, verify * 2);
  curl_easy_setopt(h, CURLOPT_PROXY_SSL_VERIFYPEER, verify);
  curl_easy_setopt(h, CURLOPT_PROXY_SSL_VERIFYHOST, verify * 2);
  if (!settings.trusted_certificates.empty()) {
    curl_easy_setopt(h, CURLOPT_CAINFO, settings.trusted_certificates.c_str());
    curl_easy_setopt(h, CURLOPT_PROXY_CAINFO, settings.trusted_certificates.c_str());
  }
}

size_t HttpTransport::Impl::OnHeader(char* data, size_t size, size_t n, void* userp) {
  auto* m = static_cast<Impl*>(userp);
  const std::string_view line(data, size * n);
  if (line.rfind("HTTP/", 0) == 0) {
    m->Touch();
    // A new response (after an interim one or an authentication round): only the last counts.
    m->header_text.clear();
    m->header_text.reserve(512);  // most responses' headers in one piece
    m->response_body.clear();
    m->status_text.clear();
    const std::size_t sp1 = line.find(' ');
    if (sp1 != std::string_view::npos) {
      const std::size_t sp2 = line.find(' ', sp1 + 1);
      if (sp2 != std::string_view::npos) m->status_text = Trimmed(line.substr(sp2 + 1));
    }
  }
  m->header_text.append(line);
  return size * n;
}

size_t HttpTransport::Impl::OnBody(char* data, size_t size, size_t n, void* userp) {
  auto* m = static_cast<Impl*>(userp);
  if (m->response_body.empty()) {
    curl_off_t length = -1;
    curl_easy_getinfo(m->easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    const std::size_t want =
        length > 0 && length < (curl_off_t{1} << 30) ? static_cast<std::size_t>(length) : size * n;
    if (m->response_body.capacity() < want) {
      if (SpareBodies* spares = Spares()) spares->Take(m->response_body, want);
      m->response_body.reserve(want);
    }
  }
  m->response_body.append(data, size * n);
  return size * n;
}

int HttpTransport::Impl::OnPrereq(void* userp, char*, char*, int, int) {
  auto* m = static_cast<Impl*>(userp);
  m->connected = true;
  m->uploading = true;
  m->Touch();
  return CURL_PREREQFUNC_OK;
}

int HttpTransport::Impl::OnProgress(void* userp, curl_off_t, curl_off_t dlnow, curl_off_t ultotal,
                                    curl_off_t ulnow) {
  auto* m = static_cast<Impl*>(userp);
  if (!m->connected) return 0;  // the connect limit applies until then
  if (dlnow != m->last_down || ulnow != m->last_up) {
    m->last_down = dlnow;
    m->last_up = ulnow;
    m->Touch();
  }
  if (m->uploading && ulnow >= ultotal) m->uploading = false;
  const long limit = m->uploading ? m->send_ms : m->receive_ms;
  if (limit <= 0) return 0;
  const auto idle =
      std::chrono::duration_cast<std::chrono::milliseconds>(CoarseClock::now() - m->last_activity);
  if (idle.count() >= limit) {
    m->stalled = true;
    return 1;  // aborts the transfer
  }
  return 0;
}

std::optional<Error> HttpTransport::Impl::Finish(CURLcode rc) {
  CURL* h = easy.get();
  if (rc == CURLE_OK) {
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
  } else {
    // A proxy that refuses the tunnel without credentials answers like a server: a 407.
    long connect_code = 0;
    curl_easy_getinfo(h, CURLINFO_HTTP_CONNECTCODE, &connect_code);
    if (connect_code != 407) return Failure(rc);
    status = 407;
    if (status_text.empty()) status_text = "Proxy Authentication Required";
  }
  const char* type = nullptr;
  if (curl_easy_getinfo(h, CURLINFO_CONTENT_TYPE, &type) == CURLE_OK && type) content_type = type;
  complete = true;
  return std::nullopt;
}

Error HttpTransport::Impl::Failure(CURLcode rc) const {
  std::string detail = error_buffer[0] ? Trimmed(error_buffer) : curl_easy_strerror(rc);
  long os_errno = 0;
  curl_easy_getinfo(easy.get(), CURLINFO_OS_ERRNO, &os_errno);
  ErrorNumber number = httperr::kInternal;
  std::string cause;
  switch (rc) {
    case CURLE_COULDNT_CONNECT:
      number = httperr::kCannotConnect;
      cause = os_errno == ECONNREFUSED ? "the server refused the connection"
                                       : "a connection with the server could not be established";
      break;
    case CURLE_COULDNT_RESOLVE_HOST:
      number = httperr::kNameNotResolved;
      cause = "the server name could not be resolved";
      break;
    case CURLE_COULDNT_RESOLVE_PROXY:
      number = httperr::kNameNotResolved;
      cause = "the proxy server's name could not be resolved";
      break;
    case CURLE_OPERATION_TIMEDOUT:
      number = httperr::kTimeout;
      cause = connected ? "the server sent nothing within the time limit"
                        : "the connection was not made within the time limit";
      break;
    case CURLE_ABORTED_BY_CALLBACK:
      if (stalled) {
        number = httperr::kTimeout;
        const long limit = uploading ? send_ms : receive_ms;
        cause = std::string(uploading ? "the request could not be sent" : "no response data came") +
                " for " + std::to_string(limit) + " ms (" +
                (uploading ? "HttpSendTimeout" : "HttpReceiveTimeout") + ")";
        detail.clear();
      } else {
        number = httperr::kCancelled;
        cause = "the request was cancelled";
      }
      break;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
      number = httperr::kConnectionError;
      cause = os_errno == ECONNRESET ? "the connection was reset by the server"
                                     : "the connection with the server ended abnormally";
      break;
    case CURLE_PEER_FAILED_VERIFICATION:
      number = httperr::kCertificateError;
      cause =
          "the server's certificate could not be verified. To reach a server whose certificate "
          "cannot be trusted, set the option \"IgnoreCertificateErrors\" to True (this gives up "
          "the protection against impostors), or name the authority that issued it in "
          "\"HttpTrustedCertificates\"";
      break;
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CRL_BADFILE:
      number = httperr::kCertificateError;
      cause = "the certificate authorities could not be read (option \"HttpTrustedCertificates\")";
      break;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_USE_SSL_FAILED:
      number = httperr::kSecureChannelError;
      cause = "the secure connection could not be made";
      break;
    case CURLE_URL_MALFORMAT:
      number = httperr::kInvalidUrl;
      cause = "the address is not valid";
      break;
    case CURLE_UNSUPPORTED_PROTOCOL:
      number = httperr::kUnrecognizedScheme;
      cause = "only http and https addresses can be fetched";
      break;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_HTTP_RETURNED_ERROR:
      number = httperr::kInvalidServerResponse;
      cause = "the server's response could not be read";
      break;
    case CURLE_OUT_OF_MEMORY:
      return Error(httperr::kOutOfMemory, "HttpTransport", "Out of memory");
    default:
      cause = "the request failed";
      break;
  }
  std::string text = "The request to " + url + " failed: " + cause;
  if (!detail.empty()) text += " (" + detail + ")";
  text += ".";
  return Error(number, "HttpTransport", std::move(text));
}

}  // namespace gw
