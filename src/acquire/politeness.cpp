#include "acquire/politeness.h"

#include <algorithm>
#include <cctype>
#include <ctime>

#include "platform/text.h"
#include "rules/settings.h"
#include "web/http_web_request.h"
#include "web/web_settings.h"

namespace gw {

namespace {

// One option read by `as`, or `fallback` when it is missing or unreadable.
template <typename T, typename As>
T ReadOption(Settings& settings, const char* name, T fallback, As as) {
  try {
    const Variant v = settings.GetOption(name);
    if (v.IsEmptyOrNull()) return fallback;
    return as(v);
  } catch (const Error&) {
    return fallback;
  }
}

long ReadLong(Settings& settings, const char* name, long fallback) {
  return ReadOption(settings, name, fallback, [](const Variant& v) { return v.ToLong(); });
}

bool ReadBool(Settings& settings, const char* name, bool fallback) {
  return ReadOption(settings, name, fallback, [](const Variant& v) { return v.ToBool(); });
}

bool IsUnreserved(unsigned char c) {
  return std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~';
}

// Percent-encoding made comparable: an escaped unreserved character is decoded, other escapes get
// capital hex digits, and bytes outside US-ASCII are escaped.
std::string NormalizePath(std::string_view s) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size(); ++i) {
    const auto c = static_cast<unsigned char>(s[i]);
    if (c == '%' && i + 2 < s.size() && std::isxdigit(static_cast<unsigned char>(s[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(s[i + 2]))) {
      const int value = std::stoi(std::string(s.substr(i + 1, 2)), nullptr, 16);
      if (IsUnreserved(static_cast<unsigned char>(value))) {
        out += static_cast<char>(value);
      } else {
        out += '%';
        out += kHex[value >> 4];
        out += kHex[value & 15];
      }
      i += 2;
    } else if (c >= 0x80 || c <= 0x20) {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

// Whether `pattern` ("*" any run, a final "$" the end) matches the start of `path`.
bool Matches(std::string_view pattern, std::string_view path) {
  bool anchored = false;
  if (!pattern.empty() && pattern.back() == '$') {
    anchored = true;
    pattern.remove_suffix(1);
  }
  // Greedy matching with backtracking to the last "*".
  std::size_t p = 0, s = 0, star = std::string_view::npos, mark = 0;
  while (true) {
    if (p == pattern.size()) {
      if (!anchored || s == path.size()) return true;
      if (star == std::string_view::npos) return false;
      p = star + 1;
      s = ++mark;
      if (s > path.size()) return false;
      continue;
    }
    if (pattern[p] == '*') {
      star = p++;
      mark = s;
      continue;
    }
    if (s < path.size() && pattern[p] == path[s]) {
      ++p;
      ++s;
      continue;
    }
    if (star == std::string_view::npos || mark >= path.size()) return false;
    p = star + 1;
    s = ++mark;
  }
}

}  // namespace

PolitenessSettings PolitenessSettings::Read() {
  PolitenessSettings s;
  try {
    gw::Settings settings;
    s.obey_robots_txt = ReadBool(settings, option::kObeyRobotsTxt, s.obey_robots_txt);
    s.max_requests_per_host =
        std::max(1L, ReadLong(settings, option::kMaxRequestsPerHost, s.max_requests_per_host));
    s.max_retry_after_secs =
        std::max(0L, ReadLong(settings, option::kMaxRetryAfterSecs, s.max_retry_after_secs));
  } catch (const Error&) {
    // No rules store: the defaults.
  }
  return s;
}

// ---- robots.txt ------------------------------------------------------------------------------

std::string ProductToken(std::string_view user_agent) {
  std::string_view token = text::TrimWhitespace(user_agent);
  const std::size_t end = token.find_first_of("/ \t");
  if (end != std::string_view::npos) token = token.substr(0, end);
  return text::AsciiLower(token);
}

RobotsRules RobotsRules::DisallowAll() {
  RobotsRules r;
  r.rules_.push_back({"/", false});
  return r;
}

RobotsRules RobotsRules::Parse(std::string_view text, std::string_view user_agent) {
  const std::string token = ProductToken(user_agent);
  struct Group {
    std::vector<std::string> agents;
    std::vector<Rule> rules;
  };
  std::vector<Group> groups;
  bool in_agents = false;
  for (std::string_view line : text::Split(text, "\n")) {
    if (const std::size_t hash = line.find('#'); hash != std::string_view::npos) {
      line = line.substr(0, hash);
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    const std::string key = text::AsciiLower(text::TrimWhitespace(line.substr(0, colon)));
    const std::string_view value = text::TrimWhitespace(line.substr(colon + 1));
    if (key == "user-agent") {
      if (!in_agents) groups.emplace_back();
      in_agents = true;
      groups.back().agents.push_back(ProductToken(value));
    } else if (key == "allow" || key == "disallow") {
      in_agents = false;
      if (groups.empty() || value.empty()) continue;  // an empty rule matches nothing
      groups.back().rules.push_back({NormalizePath(value), key == "allow"});
    } else {
      // Sitemap, Crawl-delay and the like neither end a group nor count.
    }
  }
  RobotsRules result;
  bool named = false;
  for (const Group& g : groups) {
    if (!token.empty() && std::find(g.agents.begin(), g.agents.end(), token) != g.agents.end()) {
      named = true;
      result.rules_.insert(result.rules_.end(), g.rules.begin(), g.rules.end());
    }
  }
  if (!named) {
    for (const Group& g : groups) {
      if (std::find(g.agents.begin(), g.agents.end(), "*") != g.agents.end()) {
        result.rules_.insert(result.rules_.end(), g.rules.begin(), g.rules.end());
      }
    }
  }
  return result;
}

bool RobotsRules::IsAllowed(std::string_view path_and_query) const {
  const std::string path = NormalizePath(path_and_query.empty() ? "/" : path_and_query);
  if (path == "/robots.txt") return true;
  const Rule* best = nullptr;
  for (const Rule& rule : rules_) {
    if (!Matches(rule.pattern, path)) continue;
    if (!best || rule.pattern.size() > best->pattern.size() ||
        (rule.pattern.size() == best->pattern.size() && rule.allow)) {
      best = &rule;
    }
  }
  return !best || best->allow;
}

std::optional<long> ParseRetryAfter(std::string_view value,
                                    std::chrono::system_clock::time_point now) {
  const std::string_view v = text::TrimWhitespace(value);
  if (v.empty()) return std::nullopt;
  if (std::all_of(v.begin(), v.end(),
                  [](char c) { return std::isdigit(static_cast<unsigned char>(c)); })) {
    return v.size() > 9 ? 999999999L : std::stol(std::string(v));
  }
  // An HTTP date: "Sun, 06 Nov 1994 08:49:37 GMT".
  std::tm tm{};
  const std::string s(v);
  const char* end = ::strptime(s.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &tm);
  if (!end) return std::nullopt;
  const auto when = std::chrono::system_clock::from_time_t(::timegm(&tm));
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(when - now).count();
  return std::max<long>(0, static_cast<long>(seconds));
}

// ---- the hosts of a run ------------------------------------------------------------------------

Politeness::Politeness(PolitenessSettings settings) : settings_(settings) {}

std::string Politeness::HostKey(const web::Uri& url) {
  const long port = url.Port() >= 0 ? url.Port() : web::Uri::DefaultPort(url.scheme());
  return text::AsciiLower(url.Host()) + ":" + std::to_string(port);
}

std::string Politeness::SiteKey(const web::Uri& url) {
  return text::AsciiLower(url.scheme()) + "://" + HostKey(url);
}

Politeness::Verdict Politeness::Check(const web::Uri& url, web::HttpClient& like) {
  if (settings_.obey_robots_txt) {
    const std::string key = SiteKey(url);
    auto found = sites_.find(key);
    if (found == sites_.end()) {
      auto site = std::make_unique<Site>();
      Site& s = *site;
      sites_.emplace(key, std::move(site));
      s.client = web::HttpClient::Create();
      s.client->SetUserAgent(like.UserAgent());
      s.client->SetUserName(like.UserName());
      s.client->SetPassword(like.Password());
      const std::string agent = like.UserAgent().empty()
                                    ? web::CurrentWebSettings().EffectiveUserAgent()
                                    : like.UserAgent();
      s.done = s.client->AsynchRequestComplete.Connect([&s, agent](const std::string& error) {
        const auto& response = s.client->HttpResponse();
        if (!error.empty() || !response) {
          s.rules = RobotsRules::AllowAll();  // no answer: the pages' own requests will say why
        } else if (response->StatusType() == web::HttpStatusType::Successful) {
          s.rules = RobotsRules::Parse(response->BodyText().ToString(), agent);
        } else if (response->StatusType() == web::HttpStatusType::ServerError) {
          s.rules = RobotsRules::DisallowAll();
        } else {
          s.rules = RobotsRules::AllowAll();
        }
        s.state = Site::kReady;
      });
      std::string origin = text::AsciiLower(url.scheme()) + "://" + url.Host();
      if (url.Host().find(':') != std::string::npos)
        origin = text::AsciiLower(url.scheme()) + "://[" + url.Host() + "]";
      if (url.Port() >= 0) origin += ":" + std::to_string(url.Port());
      try {
        s.client->GetPage(origin + "/robots.txt", true);
      } catch (const Error&) {
        s.rules = RobotsRules::AllowAll();
        s.state = Site::kReady;
      }
      if (s.state != Site::kReady) return Verdict::kWait;
    } else if (found->second->state != Site::kReady) {
      return Verdict::kWait;
    }
    const Site& site = *sites_.at(key);
    if (!site.rules.IsAllowed(url.PathAndQuery())) return Verdict::kRefused;
  }
  const auto host = hosts_.find(HostKey(url));
  if (host != hosts_.end()) {
    if (host->second.held_until > Clock::now()) return Verdict::kWait;
    if (host->second.in_flight >= settings_.max_requests_per_host) return Verdict::kWait;
  }
  return Verdict::kGo;
}

void Politeness::Started(const web::Uri& url) { ++hosts_[HostKey(url)].in_flight; }

void Politeness::Finished(const web::Uri& url) {
  Host& host = hosts_[HostKey(url)];
  if (host.in_flight > 0) --host.in_flight;
}

void Politeness::HoldBack(const web::Uri& url, long seconds) {
  seconds = std::clamp(seconds, 0L, settings_.max_retry_after_secs);
  Host& host = hosts_[HostKey(url)];
  host.held_until = std::max(host.held_until, Clock::now() + std::chrono::seconds(seconds));
}

std::optional<Politeness::Clock::time_point> Politeness::NextRelease() const {
  std::optional<Clock::time_point> next;
  const auto now = Clock::now();
  for (const auto& [key, host] : hosts_) {
    if (host.held_until > now && (!next || host.held_until < *next)) next = host.held_until;
  }
  return next;
}

long Politeness::RobotsPending() const {
  return static_cast<long>(std::count_if(sites_.begin(), sites_.end(), [](const auto& entry) {
    return entry.second->state != Site::kReady;
  }));
}

}  // namespace gw
