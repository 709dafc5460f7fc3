#include "rules/procedures.h"

#include <map>
#include <memory>

#include "platform/db/types.h"
#include "platform/error.h"
#include "platform/text.h"
#include "rules/embedded_scripts.h"

namespace gw {

namespace {

constexpr std::string_view kHeader = "-- procedure:";

// Parses the "-- procedure: usp_Name(A, B)" blocks of a procedures script.
std::vector<StoredProcedure> ParseCatalogue(std::string_view script) {
  std::vector<StoredProcedure> procs;
  StoredProcedure* current = nullptr;
  for (const std::string& raw : text::Split(script, "\n")) {
    const std::string_view line = text::TrimWhitespace(raw);
    if (line.substr(0, kHeader.size()) == kHeader) {
      const std::string_view decl = text::TrimWhitespace(line.substr(kHeader.size()));
      const std::size_t open = decl.find('(');
      const std::size_t close = decl.rfind(')');
      StoredProcedure p;
      p.name = std::string(text::TrimWhitespace(decl.substr(0, open)));
      if (open != std::string_view::npos && close != std::string_view::npos && close > open) {
        for (const std::string& arg : text::Split(decl.substr(open + 1, close - open - 1), ",")) {
          const std::string_view a = text::TrimWhitespace(arg);
          if (!a.empty()) p.arguments.emplace_back(a);
        }
      }
      procs.push_back(std::move(p));
      current = &procs.back();
      continue;
    }
    if (!current || line.empty() || line.substr(0, 2) == "--") continue;
    if (!current->body.empty()) current->body += '\n';
    current->body += raw;
  }
  for (auto& p : procs) {
    std::string_view body = text::TrimWhitespace(p.body);
    while (!body.empty() && body.back() == ';')
      body = text::TrimWhitespace(body.substr(0, body.size() - 1));
    p.body = std::string(body);
  }
  return procs;
}

}  // namespace

const std::vector<StoredProcedure>& StoredProcedures(std::string_view dialect) {
  static std::map<std::string, std::unique_ptr<std::vector<StoredProcedure>>> catalogues;
  const std::string key = text::AsciiLower(dialect);
  auto it = catalogues.find(key);
  if (it == catalogues.end()) {
    auto procs = std::make_unique<std::vector<StoredProcedure>>(
        ParseCatalogue(EmbeddedRulesScript(key, "procedures")));
    it = catalogues.emplace(key, std::move(procs)).first;
  }
  return *it->second;
}

const StoredProcedure* FindStoredProcedure(std::string_view dialect, std::string_view name) {
  for (const auto& p : StoredProcedures(dialect)) {
    if (text::EqualsNoCase(p.name, name)) return &p;
  }
  return nullptr;
}

BoundStatement BindProcedureCall(std::string_view dialect, const ExecCall& call,
                                 std::span<const Variant> params) {
  const StoredProcedure* proc = FindStoredProcedure(dialect, call.procedure);
  if (!proc) {
    throw Error(db::dberr::kSyntax, "Rules store",
                "Could not find stored procedure '" + call.procedure + "'.");
  }
  if (call.arguments.size() < proc->arguments.size()) {
    throw Error(db::dberr::kMissingParameter, "Rules store",
                "Procedure or function '" + proc->name + "' expects parameter '@" +
                    proc->arguments[call.arguments.size()] + "', which was not supplied.");
  }
  if (call.arguments.size() > proc->arguments.size()) {
    throw Error(db::dberr::kSyntax, "Rules store",
                "Procedure or function " + proc->name + " has too many arguments specified.");
  }
  BoundStatement bound;
  bound.sql = proc->body;
  std::size_t next_param = 0;
  for (const auto& arg : call.arguments) {
    if (!arg.placeholder) {
      bound.params.push_back(arg.value);
    } else {
      if (next_param >= params.size()) {
        throw Error(db::dberr::kBadArgument, "Rules store",
                    "The call of " + proc->name + " has more \"?\" than parameters.");
      }
      bound.params.push_back(params[next_param++]);
    }
  }
  if (next_param != params.size()) {
    throw Error(db::dberr::kBadArgument, "Rules store",
                "The call of " + proc->name + " has fewer \"?\" than parameters.");
  }
  return bound;
}

}  // namespace gw
