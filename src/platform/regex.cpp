#include "platform/regex.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <list>
#include <mutex>
#include <unordered_map>

#include "platform/text.h"

namespace gw {

namespace {

constexpr std::size_t kCacheCapacity = 512;

std::string Pcre2Message(int code) {
  PCRE2_UCHAR buffer[256];
  const int n = pcre2_get_error_message(code, buffer, sizeof buffer);
  if (n < 0) return "error " + std::to_string(code);
  return std::string(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(n));
}

// Per-thread match resources: a match context whose JIT stack is large enough for the deep
// patterns of templates (the default 32 KiB is not).
class MatchResources {
 public:
  MatchResources() {
    context_ = pcre2_match_context_create(nullptr);
    jit_stack_ = pcre2_jit_stack_create(32 * 1024, 4 * 1024 * 1024, nullptr);
    if (context_ != nullptr && jit_stack_ != nullptr) {
      pcre2_jit_stack_assign(context_, nullptr, jit_stack_);
    }
  }
  ~MatchResources() {
    pcre2_jit_stack_free(jit_stack_);
    pcre2_match_context_free(context_);
  }
  MatchResources(const MatchResources&) = delete;
  MatchResources& operator=(const MatchResources&) = delete;
  pcre2_match_context* Context() const noexcept { return context_; }

  static MatchResources& ForThisThread() {
    thread_local MatchResources resources;
    return resources;
  }

 private:
  pcre2_match_context* context_ = nullptr;
  pcre2_jit_stack* jit_stack_ = nullptr;
};

}  // namespace

struct Regex::Compiled {
  std::string pattern;
  RegexOptions options;
  pcre2_code* code = nullptr;
  std::size_t group_count = 0;

  ~Compiled() { pcre2_code_free(code); }
};

const std::string& RegexMatch::SubMatch(std::size_t index) const {
  if (index >= groups_.size()) {
    throw Error(errnum::kInvalidProcedureCall, "SubMatches", "Invalid procedure call or argument");
  }
  return groups_[index];
}

bool RegexMatch::IsSubMatchSet(std::size_t index) const {
  return index < set_.size() && set_[index];
}

Regex::Regex(std::string_view pattern, RegexOptions options) {
  auto compiled = std::make_shared<Compiled>();
  compiled->pattern = std::string(pattern);
  compiled->options = options;

  pcre2_compile_context* context = pcre2_compile_context_create(nullptr);
  // CR, LF and CRLF are line breaks: `.` stops at each, and they delimit lines in multi-line mode.
  pcre2_set_newline(context, PCRE2_NEWLINE_ANYCRLF);
  std::uint32_t flags = PCRE2_UTF | PCRE2_MATCH_INVALID_UTF | PCRE2_ALT_BSUX |
                        PCRE2_DOLLAR_ENDONLY | PCRE2_MATCH_UNSET_BACKREF | PCRE2_ALLOW_EMPTY_CLASS;
  if (options.ignore_case) flags |= PCRE2_CASELESS;
  if (options.multiline) flags |= PCRE2_MULTILINE;
  int error_code = 0;
  PCRE2_SIZE error_offset = 0;
  compiled->code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                 flags, &error_code, &error_offset, context);
  pcre2_compile_context_free(context);
  if (compiled->code == nullptr) {
    throw Error(errnum::kRegexSyntax, "RegExp",
                "Syntax error in regular expression: " + Pcre2Message(error_code) + " at offset " +
                    std::to_string(error_offset) + " of \"" + std::string(pattern) + "\"");
  }
  // Without the JIT (not available on every machine) the interpreter matches the same way.
  pcre2_jit_compile(compiled->code, PCRE2_JIT_COMPLETE);
  std::uint32_t captures = 0;
  pcre2_pattern_info(compiled->code, PCRE2_INFO_CAPTURECOUNT, &captures);
  compiled->group_count = captures;
  compiled_ = std::move(compiled);
}

Regex::~Regex() = default;

std::shared_ptr<const Regex> Regex::Cached(std::string_view pattern, RegexOptions options) {
  // Least recently used first in `order`; the map points into it.
  struct Cache {
    std::mutex mutex;
    std::list<std::pair<std::string, std::shared_ptr<const Regex>>> order;
    std::unordered_map<std::string, decltype(order)::iterator> index;
  };
  static Cache cache;

  std::string key;
  key.reserve(pattern.size() + 2);
  key.push_back(options.ignore_case ? 'i' : '-');
  key.push_back(options.multiline ? 'm' : '-');
  key.append(pattern);

  std::lock_guard lock(cache.mutex);
  if (auto it = cache.index.find(key); it != cache.index.end()) {
    cache.order.splice(cache.order.end(), cache.order, it->second);
    return it->second->second;
  }
  auto regex = std::make_shared<const Regex>(pattern, options);
  cache.order.emplace_back(key, regex);
  cache.index.emplace(std::move(key), std::prev(cache.order.end()));
  if (cache.order.size() > kCacheCapacity) {
    cache.index.erase(cache.order.front().first);
    cache.order.pop_front();
  }
  return regex;
}

const std::string& Regex::Pattern() const noexcept { return compiled_->pattern; }
RegexOptions Regex::Options() const noexcept { return compiled_->options; }
std::size_t Regex::GroupCount() const noexcept { return compiled_->group_count; }

// ---- Matcher ---------------------------------------------------------------------------------

Regex::Matcher::Matcher(const Compiled& compiled, std::string_view subject)
    : compiled_(compiled), subject_(subject) {
  match_data_ = pcre2_match_data_create_from_pattern(compiled.code, nullptr);
  if (match_data_ == nullptr) throw std::bad_alloc();
}

Regex::Matcher::~Matcher() { pcre2_match_data_free(static_cast<pcre2_match_data*>(match_data_)); }

bool Regex::Matcher::Find(std::size_t offset) {
  auto* md = static_cast<pcre2_match_data*>(match_data_);
  const int rc =
      pcre2_match(compiled_.code, reinterpret_cast<PCRE2_SPTR>(subject_.data()), subject_.size(),
                  offset, 0, md, MatchResources::ForThisThread().Context());
  if (rc == PCRE2_ERROR_NOMATCH) return false;
  if (rc < 0) {
    if (rc == PCRE2_ERROR_MATCHLIMIT || rc == PCRE2_ERROR_DEPTHLIMIT ||
        rc == PCRE2_ERROR_HEAPLIMIT || rc == PCRE2_ERROR_JIT_STACKLIMIT ||
        rc == PCRE2_ERROR_NOMEMORY) {
      throw Error(errnum::kOutOfStackSpace, "RegExp",
                  "Out of stack space: the regular expression \"" + compiled_.pattern +
                      "\" needs too much backtracking on this text (" + Pcre2Message(rc) + ")");
    }
    throw Error(errnum::kProviderError, "RegExp",
                "Regular expression match failed: " + Pcre2Message(rc));
  }
  const PCRE2_SIZE* ov = pcre2_get_ovector_pointer(md);
  begin_ = ov[0];
  // A match that ends before it starts (only possible with \K in a lookaround) counts as empty.
  end_ = ov[1] < ov[0] ? ov[0] : ov[1];
  return true;
}

std::size_t Regex::Matcher::NextOffset() const noexcept {
  if (end_ > begin_) return end_;
  // An empty match: go on one character further, never splitting a UTF-8 sequence.
  if (end_ >= subject_.size()) return subject_.size() + 1;
  std::size_t next = end_;
  text::DecodeUtf8(subject_, next);
  return next;
}

bool Regex::Matcher::Group(std::size_t index, std::size_t& begin, std::size_t& end) const noexcept {
  auto* md = static_cast<pcre2_match_data*>(match_data_);
  if (index >= pcre2_get_ovector_count(md)) return false;
  const PCRE2_SIZE* ov = pcre2_get_ovector_pointer(md);
  if (ov[2 * index] == PCRE2_UNSET) return false;
  begin = ov[2 * index];
  end = ov[2 * index + 1] < begin ? begin : ov[2 * index + 1];
  return true;
}

// ---- matching --------------------------------------------------------------------------------

bool Regex::Test(std::string_view subject) const {
  Matcher matcher(*compiled_, subject);
  return matcher.Find(0);
}

std::vector<RegexMatch> Regex::Execute(std::string_view subject, bool global) const {
  std::vector<RegexMatch> matches;
  Matcher matcher(*compiled_, subject);
  std::size_t offset = 0;
  while (offset <= subject.size() && matcher.Find(offset)) {
    RegexMatch& m = matches.emplace_back();
    m.first_index_ = matcher.Begin();
    m.value_ = std::string(subject.substr(matcher.Begin(), matcher.End() - matcher.Begin()));
    m.groups_.resize(compiled_->group_count);
    m.set_.resize(compiled_->group_count);
    for (std::size_t g = 1; g <= compiled_->group_count; ++g) {
      std::size_t b = 0, e = 0;
      if (matcher.Group(g, b, e)) {
        m.groups_[g - 1] = std::string(subject.substr(b, e - b));
        m.set_[g - 1] = true;
      }
    }
    if (!global) break;
    offset = matcher.NextOffset();
  }
  return matches;
}

namespace {

// A replacement text split once into literal pieces and references.
struct ReplacementPiece {
  enum Kind { kLiteral, kGroup, kWhole, kBefore, kAfter } kind;
  std::string literal;
  std::size_t group = 0;
};

std::vector<ReplacementPiece> ParseReplacement(std::string_view replacement,
                                               std::size_t group_count) {
  std::vector<ReplacementPiece> pieces;
  std::string literal;
  auto flush = [&] {
    if (!literal.empty()) {
      pieces.push_back({ReplacementPiece::kLiteral, std::move(literal), 0});
      literal.clear();
    }
  };
  auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  for (std::size_t i = 0; i < replacement.size(); ++i) {
    const char c = replacement[i];
    if (c != '$' || i + 1 >= replacement.size()) {
      literal.push_back(c);
      continue;
    }
    const char next = replacement[i + 1];
    if (next == '$') {
      literal.push_back('$');
      ++i;
    } else if (next == '&' || next == '`' || next == '\'') {
      flush();
      pieces.push_back({next == '&'   ? ReplacementPiece::kWhole
                        : next == '`' ? ReplacementPiece::kBefore
                                      : ReplacementPiece::kAfter,
                        {},
                        0});
      ++i;
    } else if (is_digit(next)) {
      // Two digits when they name an existing group, else one digit, else literal text.
      std::size_t group = 0, used = 0;
      if (i + 2 < replacement.size() && is_digit(replacement[i + 2])) {
        const std::size_t two = static_cast<std::size_t>(next - '0') * 10 +
                                static_cast<std::size_t>(replacement[i + 2] - '0');
        if (two >= 1 && two <= group_count) group = two, used = 2;
      }
      if (used == 0) {
        const auto one = static_cast<std::size_t>(next - '0');
        if (one >= 1 && one <= group_count) group = one, used = 1;
      }
      if (used == 0) {
        literal.push_back('$');
        continue;
      }
      flush();
      pieces.push_back({ReplacementPiece::kGroup, {}, group});
      i += used;
    } else {
      literal.push_back('$');
    }
  }
  flush();
  return pieces;
}

}  // namespace

std::string Regex::Replace(std::string_view subject, std::string_view replacement,
                           bool global) const {
  const std::vector<ReplacementPiece> pieces =
      ParseReplacement(replacement, compiled_->group_count);
  std::string out;
  out.reserve(subject.size());
  std::size_t copied = 0;
  Matcher matcher(*compiled_, subject);
  std::size_t offset = 0;
  while (offset <= subject.size() && matcher.Find(offset)) {
    const std::size_t b = matcher.Begin(), e = matcher.End();
    out.append(subject.substr(copied, b - copied));
    for (const ReplacementPiece& piece : pieces) {
      switch (piece.kind) {
        case ReplacementPiece::kLiteral:
          out.append(piece.literal);
          break;
        case ReplacementPiece::kWhole:
          out.append(subject.substr(b, e - b));
          break;
        case ReplacementPiece::kBefore:
          out.append(subject.substr(0, b));
          break;
        case ReplacementPiece::kAfter:
          out.append(subject.substr(e));
          break;
        case ReplacementPiece::kGroup: {
          std::size_t gb = 0, ge = 0;
          if (matcher.Group(piece.group, gb, ge)) out.append(subject.substr(gb, ge - gb));
          break;
        }
      }
    }
    copied = e;
    if (!global) break;
    offset = matcher.NextOffset();
  }
  out.append(subject.substr(copied));
  return out;
}

// ---- RegExp ----------------------------------------------------------------------------------

RegExp::RegExp(std::string pattern, bool global, bool ignore_case, bool multiline)
    : pattern_(std::move(pattern)), global_(global), options_{ignore_case, multiline} {}

void RegExp::SetPattern(std::string pattern) {
  pattern_ = std::move(pattern);
  compiled_.reset();
}

void RegExp::SetIgnoreCase(bool ignore_case) {
  if (options_.ignore_case != ignore_case) compiled_.reset();
  options_.ignore_case = ignore_case;
}

void RegExp::SetMultiLine(bool multiline) {
  if (options_.multiline != multiline) compiled_.reset();
  options_.multiline = multiline;
}

const Regex& RegExp::Compiled() const {
  if (!compiled_) compiled_ = Regex::Cached(pattern_, options_);
  return *compiled_;
}

bool RegExp::Test(std::string_view subject) const { return Compiled().Test(subject); }

std::vector<RegexMatch> RegExp::Execute(std::string_view subject) const {
  return Compiled().Execute(subject, global_);
}

std::string RegExp::Replace(std::string_view subject, std::string_view replacement) const {
  return Compiled().Replace(subject, replacement, global_);
}

}  // namespace gw
