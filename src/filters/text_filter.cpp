#include "filters/text_filter.h"

#include <optional>
#include <vector>

#include "platform/error.h"
#include "platform/regex.h"
#include "platform/text.h"
#include "web/http_utility.h"
#include "web/uri.h"

namespace gw::filters::TextFilter {

const char* const kTagTable =
    "a,abbr,acronym,address,applet,area,b,base,basefont,bdo,big,blockquote,body,br,button,caption,"
    "center,cite,code,col,colgroup,dd,del,dir,div,dfn,dl,dt,em,fieldset,font,form,frame,frameset,"
    "h1,h2,h3,h4,h5,h6,head,hr,html,i,iframe,img,input,ins,isindex,kbd,label,legend,li,link,map,"
    "menu,meta,noframes,noscript,object,ol,optgroup,option,p,param,pre,q,s,samp,script,select,"
    "small,span,strike,strong,style,sub,sup,table,tbody,td,textarea,tfoot,th,thead,title,tr,tt,u,"
    "ul,var,xmp,v:shape,v:stroke,v:f,v:path,v:,o:p,o:,st1:street,st1:city,st1:state,st1:place,"
    "st1:stockticker,st1:,o:lock,v:imagedata,w:wrap,w:,v:formulas";

namespace {

constexpr RegexOptions kIgnoreCase{true, false};
constexpr std::string_view kCrLf = "\r\n";

const char* const kScriptPattern = "<script[^>]*>.*</ *script[^>]*>";

// One replacement pass: every match replaced, then spaces trimmed from both ends.
std::string ReplaceAndTrim(const Regex& re, std::string_view text, std::string_view replacement) {
  return std::string(text::TrimSpaces(re.Replace(text, replacement, true)));
}

// Non-empty match values, each followed by two spaces, trimmed.
std::string JoinMatches(const Regex& re, std::string_view text, bool match_all) {
  std::string out;
  re.ForEachMatch(text, match_all, [&](std::size_t begin, std::size_t end) {
    if (end > begin) {
      out.append(text.substr(begin, end - begin));
      out.append("  ");
    }
    return true;
  });
  return std::string(text::TrimSpaces(out));
}

const Dictionary<std::string>& TagDictionary() {
  static const Dictionary<std::string> tags = CSVToDictionary(kTagTable);
  return tags;
}

// The layout steps of `ConvertHtmlToText`; each belongs to a tag and is skipped when that tag is
// to be kept.
struct LayoutStep {
  const char* key;
  const char* find;
  bool literal;
  std::string replacement;
  std::optional<Regex> regex;
};

const std::vector<LayoutStep>& LayoutSteps() {
  static const std::vector<LayoutStep> steps = [] {
    const std::string crlf(kCrLf), two = crlf + crlf;
    std::vector<LayoutStep> s = {
        {"P", "<P>", true, two, {}},
        {"P", "<[Pp] [^>]*>", false, two, {}},
        {"BR", "<BR>", true, crlf, {}},
        {"BR", "<[Bb][Rr] [^>]*>", false, crlf, {}},
        // A <b> with attributes starts a paragraph, a bare <b> does not: kept on purpose.
        {"B", "<[Bb] [^>]*>", false, two, {}},
        {"LI", "<LI>", true, crlf + "-", {}},
        {"LI", "<[Ll][Ii] [^>]*>", false, crlf + "-", {}},
        {"TD", "</ *[Tt][Dd][^>]*>", false, " ", {}},
        {"TR", "</ *[Tt][Rr][^>]*>", false, crlf, {}},
        {"TABLE", "<Table[^>]*>", false, crlf, {}},
        {"TABLE", "</ *Table[^>]*>", false, crlf, {}},
        {"DIV", "<Div[^>]*>", false, crlf, {}},
        {"DIV", "</ *Div[^>]*>", false, crlf, {}},
        {"SPAN", "<Span[^>]*>", false, " ", {}},
        {"SPAN", "</ *Span[^>]*>", false, " ", {}},
    };
    for (LayoutStep& step : s) {
      if (!step.literal) step.regex.emplace(step.find, kIgnoreCase);
    }
    return s;
  }();
  return steps;
}

void RunLayoutSteps(std::string& text, const Dictionary<std::string>* ignore) {
  for (const LayoutStep& step : LayoutSteps()) {
    if (ignore != nullptr && ignore->Exists(step.key)) continue;
    if (step.literal) {
      text = text::ReplaceAll(text, step.find, step.replacement, /*ignore_case=*/true);
    } else {
      text = ReplaceAndTrim(*step.regex, text, step.replacement);
    }
  }
}

// A single pass of each, with binary comparison.
void TidyUp(std::string& text) {
  text = text::ReplaceAll(text, "  ", " ");
  text = text::ReplaceAll(text, "\r\n ", "\r\n");
  text = text::ReplaceAll(text, "\r\n\r\n\r\n", "\r\n\r\n");
}

// The ignore list as a dictionary: "<", ">" and "/" removed first, so "<b>,</i>" is accepted.
Dictionary<std::string> IgnoreDictionary(std::string_view csv) {
  std::string cleaned;
  cleaned.reserve(csv.size());
  for (char c : csv) {
    if (c != '<' && c != '>' && c != '/') cleaned.push_back(c);
  }
  return CSVToDictionary(cleaned);
}

}  // namespace

Dictionary<std::string> CSVToDictionary(std::string_view csv) {
  Dictionary<std::string> dict;
  for (const std::string& item : text::Split(csv, ",")) {
    std::string key = text::ToUpper(item);
    if (!dict.Exists(key)) dict.Add(key, key);
  }
  return dict;
}

std::string RunRegExMatch(std::string_view text, std::string_view Pattern, bool matchAll) {
  return ReportAs(
      "TextFilter.RunRegExMatch(text,Pattern,matchAll)", Args(text, Pattern, matchAll),
      [&] { return JoinMatches(*Regex::Cached(Pattern, kIgnoreCase), text, matchAll); });
}

std::string RunRegExReplace(std::string_view text, std::string_view Pattern,
                            std::string_view Replacement) {
  return ReportAs(
      "TextFilter.RunRegExReplace(text,Pattern,Replacement)", Args(text, Pattern, Replacement),
      [&] { return ReplaceAndTrim(*Regex::Cached(Pattern, kIgnoreCase), text, Replacement); });
}

std::string GetUSPhones(std::string_view text) {
  return ReportAs("TextFilter.GetUSPhones(text)", Args(text), [&] {
    static const Regex re(
        "([0-9][0-9][0-9].?.?.?[0-9][0-9][0-9].?.?.?[0-9][0-9][0-9][0-9].?.?x.?.?.?[0-9]?[0-9]?"
        "[0-9]?[0-9]?[0-9])|([0-9][0-9][0-9].?.?.?[0-9][0-9][0-9].?.?.?[0-9][0-9][0-9][0-9])",
        kIgnoreCase);
    return JoinMatches(re, text, true);
  });
}

std::string GetNumbers(std::string_view text) {
  return ReportAs("TextFilter.GetNumbers(text)", Args(text), [&] {
    static const Regex re(R"(((\.[0-9])|[0-9])*)", kIgnoreCase);
    return JoinMatches(re, text, true);
  });
}

std::string GetEmails(std::string_view text) {
  return ReportAs("TextFilter.GetEmails(text)", Args(text), [&] {
    static const Regex re(R"([\w-]+(?:\.[\w-]+)*@(?:[\w-]+\.)+[a-zA-Z]{2,7})", kIgnoreCase);
    return JoinMatches(re, text, true);
  });
}

std::string RemoveHtmlTags(std::string_view text) {
  return ReportAs("TextFilter.RemoveHtmlTags(text)", Args(text), [&] {
    static const Regex re("<[^>]*>", kIgnoreCase);
    return ReplaceAndTrim(re, text, "");
  });
}

std::string RemoveHTMLLiterals(std::string_view text) {
  return ReportAs("TextFilter.RemoveHTMLLiterals(text)", Args(text),
                  [&] { return web::HttpUtility::HTMLDecode(text); });
}

std::string RemoveAllHtml(std::string_view text) {
  return ReportAs("TextFilter.RemoveAllHtml(text)", Args(text),
                  [&] { return RemoveHTMLLiterals(RemoveHtmlTags(text)); });
}

std::string BetterRemoveHtmlTags(std::string_view text) {
  return ReportAs("TextFilter.BetterRemoveHtmlTags(text)", Args(text), [&] {
    static const Regex script(kScriptPattern, kIgnoreCase);
    // A quoted attribute may hold ">" without ending its tag.
    static const Regex tags(R"(<[^>]*["][^"]*["][^>]?>|<[^>]*['][^']*['][^>]?>|<[^>]+>)",
                            kIgnoreCase);
    return ReplaceAndTrim(tags, ReplaceAndTrim(script, text, ""), "");
  });
}

std::string RemoveHtmlComments(std::string& text) {
  return ReportAs("TextFilter.RemoveHtmlComments(text)", Args(text), [&] {
    // `.` stops at a line break: a comment over several lines is left to the tag pass.
    static const Regex comments("<!--.*-->", kIgnoreCase);
    text = ReplaceAndTrim(comments, text, "");
    return BetterRemoveHtmlTags(text);
  });
}

std::string ConvertHtmlToText(std::string& text) {
  return ReportAs("TextFilter.ConvertHtmlToText(text)", Args(text), [&] {
    RunLayoutSteps(text, nullptr);
    text = BetterRemoveHtmlTags(text);
    text = RemoveHTMLLiterals(text);
    TidyUp(text);
    return text;
  });
}

std::string ConvertHtmlToTextExcept(std::string& text, std::string_view IgnoreTagsCSV) {
  return ReportAs("TextFilter.ConvertHtmlToText(text)", Args(text), [&] {
    const Dictionary<std::string> ignore = IgnoreDictionary(IgnoreTagsCSV);
    RunLayoutSteps(text, &ignore);
    if (!ignore.Exists("SCRIPT")) {
      static const Regex script(kScriptPattern, kIgnoreCase);
      text = ReplaceAndTrim(script, text, "");
    }
    std::string list;
    for (const auto& [key, value] : TagDictionary()) {
      if (ignore.Exists(key)) continue;
      if (!list.empty()) list += "|";
      list += key;
    }
    const std::string pattern = "<[ /]*(" + list + ")[^>]*[\"][^\"]*[\"][^>]?>|<[ /]*(" + list +
                                ")[^>]*['][^']*['][^>]?>|<[ /]*(" + list + ")( [^>]*?>|>)";
    text = ReplaceAndTrim(*Regex::Cached(pattern, kIgnoreCase), text, "");
    text = RemoveHTMLLiterals(text);
    TidyUp(text);
    return text;
  });
}

std::string RemoveHtmlAttributesExcept(std::string& text, std::string_view IgnoreTagsCSV) {
  return ReportAs(
      "TextFilter.RemoveHtmlAttributesExcept(text,IgnoreTagsCSV)", Args(text, IgnoreTagsCSV), [&] {
        struct TagPass {
          std::string key;
          std::string replacement;
          Regex regex;
        };
        // One pass per tag of the table, compiled once.
        static const std::vector<TagPass> passes = [] {
          std::vector<TagPass> p;
          for (const auto& [key, value] : TagDictionary()) {
            const std::string pattern = "<[ /]*" + key + "[^>]*[\"][^\"]*[\"][^>]?>|<[ /]*" + key +
                                        "[^>]*['][^']*['][^>]?>|< *" + key + "( [^>]*?>|>)";
            p.push_back({key, "<" + key + ">", Regex(pattern, kIgnoreCase)});
          }
          return p;
        }();
        const Dictionary<std::string> ignore = IgnoreDictionary(IgnoreTagsCSV);
        for (const TagPass& pass : passes) {
          if (ignore.Exists(pass.key)) continue;
          text = ReplaceAndTrim(pass.regex, text, pass.replacement);
        }
        text = RemoveHTMLLiterals(text);
        TidyUp(text);
        return text;
      });
}

std::string GetUrl(std::string& text, std::string_view SrcUrl) {
  return ReportAs("TextFilter.GetUrl(text,SrcUrl)", Args(text, SrcUrl), [&]() -> std::string {
    web::Uri base;
    const bool has_base = !SrcUrl.empty();
    if (has_base) {
      try {
        base.Parse(SrcUrl);
      } catch (const Error&) {
        // A base that does not parse stays as far as it got; resolving against it decides.
      }
    }
    static const Regex href(R"(href[\s]*=[\s]*["' ]*)", kIgnoreCase);
    static const Regex src(R"(src[\s]*=[\s]*["' ]*)", kIgnoreCase);
    static const Regex rest(R"(["' >])", kIgnoreCase);
    text = ReplaceAndTrim(href, text, "");
    text = ReplaceAndTrim(src, text, "");
    text = ReplaceAndTrim(rest, text, "");
    try {
      const web::Uri link(text, has_base ? &base : nullptr);
      std::string external = link.ToExternalForm();
      switch (web::HttpUtility::ClassifyResourceUri(external)) {
        case web::ResourceType::email:
        case web::ResourceType::Unknown:
        case web::ResourceType::Invalid:
          return {};
        default:
          return external;
      }
    } catch (const Error&) {
      return {};
    }
  });
}

}  // namespace gw::filters::TextFilter
