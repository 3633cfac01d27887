#include <iostream>

#include "Platform/DecodingError.h"
#include "SSHWire/SSHPublicKey.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {
namespace {

struct RuleOptions {
  std::string name, decision = "askLocal", purpose = "any";
  std::vector<std::string> keys, hostKeys, apps, directories, gitHints;
  bool allowForwarded = false, json = false;
  std::string deleteID;
};
RuleOptions options;

PurposeMatch purposeNamed(const std::string& text) {
  if (text == "any") return PurposeMatch::any();
  if (text == "login") return PurposeMatch::login();
  if (text == "other") return PurposeMatch::other();
  if (text == "git") return PurposeMatch::signature("git");
  if (text == "signature") return PurposeMatch::signature();
  if (text.starts_with("signature:")) return PurposeMatch::signature(text.substr(10));
  throw CommandFailure("--purpose is any, login, git, signature, signature:NAMESPACE or other");
}

std::string describe(const PurposeMatch& purpose) {
  return toJSON(purpose).dump();
}

RulesFile readRules(const SupportState& support) {
  RulesFile file = RulesFile::read(support);
  if (file.state == RulesFile::State::tampered)
    std::cerr << "The rules file was changed outside Quorvane and is ignored. Every request asks "
                 "until you save rules here again.\n";
  if (file.state == RulesFile::State::unreadable)
    throw CommandFailure("the rules file cannot be read: " + file.problem);
  return file;
}

void list() {
  RulesFile file = readRules(SupportState::open());
  if (options.json) {
    JSON array = JSON::array();
    for (const Rule& rule : file.rules) array.push_back(toJSON(rule));
    return printJSON(array);
  }
  if (file.rules.empty())
    std::cout << "Without rules, Quorvane asks you every time. Add a rule from a template to stop "
                 "asking for things you always allow.\n";
  for (const Rule& rule : file.rules) {
    std::cout << rule.id.uuidString() << "  “" << rule.name << "”  " << rawValue(rule.decision)
              << "  purpose " << describe(rule.purpose) << "\n";
    auto line = [](const char* label, const auto& values) {
      if (values.empty()) return;
      std::cout << "    " << label;
      for (const auto& value : values) std::cout << " " << value;
      std::cout << "\n";
    };
    line("keys", rule.keyFingerprints);
    line("hosts", rule.hostKeys);
    line("apps", rule.appIdentifiers);
    line("folders", rule.directoryPrefixes);
    std::vector<std::string> hints;
    for (GitHint hint : rule.gitHints) hints.emplace_back(rawValue(hint));
    line("git", hints);
    if (rule.allowForwarded) std::cout << "    also for forwarded connections\n";
    if (rule.forwardedOnly) std::cout << "    only forwarded connections\n";
  }
}

void add() {
  SupportState support = SupportState::open();
  RulesFile file = readRules(support);
  Rule rule;
  rule.id = UUID::random();
  rule.decision = decodeDecision(JSONReader(JSON(options.decision)));
  rule.purpose = purposeNamed(options.purpose);
  auto records = support.openKeyStore()->records();
  for (const std::string& key : options.keys)
    rule.keyFingerprints.insert(fingerprint(findKey(records, key).publicKeyBlob));
  rule.hostKeys.insert(options.hostKeys.begin(), options.hostKeys.end());
  rule.appIdentifiers.insert(options.apps.begin(), options.apps.end());
  rule.directoryPrefixes = options.directories;
  for (const std::string& hint : options.gitHints)
    rule.gitHints.insert(decodeGitHint(JSONReader(JSON(hint))));
  rule.allowForwarded = options.allowForwarded;
  rule.name = options.name.empty() ? std::string(rawValue(rule.decision)) + " " + options.purpose
                                   : options.name;
  file.rules.push_back(rule);
  RulesFile::save(support, file.rules);
  notifyAgentOfChange();
  std::cout << "Saved the rule “" << rule.name << "” (" << rule.id.uuidString() << ").\n";
}

void remove() {
  SupportState support = SupportState::open();
  RulesFile file = readRules(support);
  auto found = std::ranges::find_if(
      file.rules, [](const Rule& rule) { return rule.id.uuidString() == options.deleteID; });
  if (found == file.rules.end()) throw CommandFailure("no rule has the id " + options.deleteID);
  const std::string name = found->name;
  file.rules.erase(found);
  RulesFile::save(support, file.rules);
  notifyAgentOfChange();
  std::cout << "Deleted the rule “" << name << "”.\n";
}

}  // namespace

void addRuleCommands(CLI::App& app) {
  CLI::App* rules = app.add_subcommand("rules", "rules that decide requests without asking you");
  rules->require_subcommand(1);
  CLI::App* listCommand = rules->add_subcommand("list", "list the rules in the order they apply");
  addJSONFlag(listCommand, options.json);
  listCommand->callback(list);

  CLI::App* addCommand = rules->add_subcommand("add", "add a rule; conditions left out match anything");
  addCommand->add_option("--name", options.name, "shown in prompts and the log");
  addCommand->add_option("--decision", options.decision, "allow, askLocal (default), askRemote or deny")
      ->check(CLI::IsMember({"allow", "askLocal", "askRemote", "deny"}));
  addCommand->add_option("--purpose", options.purpose,
                         "any (default), login, git, signature, signature:NAMESPACE or other");
  addCommand->add_option("--key", options.keys, "a key's name or fingerprint (repeatable)");
  addCommand->add_option("--host-key", options.hostKeys, "a server's host key fingerprint (repeatable)");
  addCommand->add_option("--app", options.apps, "a program's signing identifier (repeatable)");
  addCommand->add_option("--dir", options.directories, "only in this folder or below (repeatable)");
  addCommand->add_option("--git", options.gitHints, "fetch or push (repeatable)")
      ->check(CLI::IsMember({"fetch", "push"}));
  addCommand->add_flag("--allow-forwarded", options.allowForwarded,
                       "also for connections forwarded with ssh -A");
  addCommand->callback(add);

  CLI::App* deleteCommand = rules->add_subcommand("delete", "delete a rule");
  deleteCommand->add_option("ID", options.deleteID, "the rule's id (see quorvane rules list)")
      ->required();
  deleteCommand->callback(remove);
}

}  // namespace quorvane::cli
