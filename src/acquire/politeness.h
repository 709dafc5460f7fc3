// Polite fetching: what a crawler owes the sites it visits, beyond the task's own throttle.
//
//  - robots.txt (RFC 9309) is fetched once per site (scheme, host and port) and download run, in
//    the background, and obeyed for the user agent of the requests: the group whose user-agent
//    line names the agent's product token (the text before its first "/", ignoring case), else
//    the "*" group; the longest matching rule wins, an allow rule on a tie; "*" and a final "$"
//    work as in the RFC; "/robots.txt" itself is always allowed. A robots.txt that answers 4xx
//    allows everything; one that answers 5xx forbids everything for the run; one that cannot be
//    reached at all (no answer) allows everything, so the page's own request shows why the site
//    is out of reach. Setting "ObeyRobotsTxt" (default True).
//  - at most "MaxRequestsPerHost" (default 4) transfers to one host (name and port) at a time.
//  - a 429 or 503 answer with a `Retry-After` header (seconds or an HTTP date) keeps further
//    requests to its host waiting that long, at most "MaxRetryAfterSecs" (default 120) seconds.
//
// The settings are options of the `settings` table; `PolitenessSettings::Read` reads them.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/signal.h"
#include "web/http_client.h"
#include "web/uri.h"

namespace gw {

namespace option {
inline constexpr const char* kObeyRobotsTxt = "ObeyRobotsTxt";
inline constexpr const char* kMaxRequestsPerHost = "MaxRequestsPerHost";
inline constexpr const char* kMaxRetryAfterSecs = "MaxRetryAfterSecs";
}  // namespace option

struct PolitenessSettings {
  bool obey_robots_txt = true;
  long max_requests_per_host = 4;
  long max_retry_after_secs = 120;

  // The options of the rules store, each falling back to its default when it is missing or is
  // not a number; a limit below 1 counts as 1.
  static PolitenessSettings Read();
};

// The rules of one robots.txt for one user agent.
class RobotsRules {
 public:
  // Everything allowed.
  RobotsRules() = default;
  static RobotsRules AllowAll() { return {}; }
  static RobotsRules DisallowAll();
  // The groups of `text` that apply to `user_agent` (a full agent string or its product token).
  static RobotsRules Parse(std::string_view text, std::string_view user_agent);

  // `path_and_query` as sent ("/a/b?x=1").
  bool IsAllowed(std::string_view path_and_query) const;

 private:
  struct Rule {
    std::string pattern;  // percent-encoding normalised
    bool allow;
  };
  std::vector<Rule> rules_;
};

// The product token of a user agent: "Gleanwright/1.0 (x)" gives "gleanwright".
std::string ProductToken(std::string_view user_agent);
// Seconds to wait by a Retry-After value, or nullopt when it is neither a number nor a date.
std::optional<long> ParseRetryAfter(std::string_view value,
                                    std::chrono::system_clock::time_point now);

// The state of a download run's hosts. One per run of a download manager, shared by its passes.
class Politeness {
 public:
  using Clock = std::chrono::steady_clock;
  enum class Verdict { kGo, kWait, kRefused };

  explicit Politeness(PolitenessSettings settings = PolitenessSettings::Read());
  const PolitenessSettings& Settings() const noexcept { return settings_; }

  // May a request for `url` start now? kWait while the site's robots.txt is being fetched (the
  // first question about a site starts that, with a client made like `like`), while its host is
  // held back by a Retry-After, or while it has its limit of transfers in flight.
  Verdict Check(const web::Uri& url, web::HttpClient& like);
  // A transfer to `url`'s host began or ended.
  void Started(const web::Uri& url);
  void Finished(const web::Uri& url);
  // Holds `url`'s host back for `seconds` (capped by the setting).
  void HoldBack(const web::Uri& url, long seconds);
  // The nearest moment at which a held-back host is free again, if any is held back.
  std::optional<Clock::time_point> NextRelease() const;
  // How many requests of robots.txt are in flight.
  long RobotsPending() const;

  static std::string HostKey(const web::Uri& url);
  static std::string SiteKey(const web::Uri& url);

 private:
  struct Site {
    enum State { kFetching, kReady } state = kFetching;
    RobotsRules rules;
    std::shared_ptr<web::HttpClient> client;
    ScopedConnection done;
  };
  struct Host {
    long in_flight = 0;
    Clock::time_point held_until{};
  };

  PolitenessSettings settings_;
  std::map<std::string, std::unique_ptr<Site>> sites_;
  std::map<std::string, Host> hosts_;
};

}  // namespace gw
