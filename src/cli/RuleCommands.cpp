#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <iostream>
#include <optional>

#include "AgentState/RulesFile.h"
#include "Base/DecodingError.h"
#include "RulesModel/RuleTemplates.h"
#include "RulesModel/RuleVocabulary.h"
#include "SSHWire/SSHPublicKey.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {
namespace {

struct RuleOptions {
  std::string name, decision = "askLocal", purpose = "any";
  std::vector<std::string> keys, hostKeys, apps, directories, gitHints;
  bool allowForwarded = false, json = false, yes = false, allowAny = false;
  std::string deleteID;
  std::optional<size_t> templateNumber;
  std::optional<std::string> templateHostKey, codingAgent;
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

// The list shows the tampered text as its contents; the other commands warn about it.
RulesFile readRules(const SupportState& support, bool listing = false) {
  RulesFile file = RulesFile::read(support);
  if (file.state == RulesFile::State::tampered && !options.json)
    (listing ? std::cout : std::cerr) << kTamperedRulesText << "\n";
  if (file.state == RulesFile::State::unreadable)
    throw CommandFailure("the rules file cannot be read: " + file.problem);
  return file;
}

// A rule in the editor's words: decision and purpose, then the two groups of conditions.
void printRule(const Rule& rule) {
  auto values = [](const auto& set, std::string_view none) {
    std::string text;
    for (const auto& value : set) text += (text.empty() ? "" : ", ") + std::string(value);
    return text.empty() ? std::string(none) : text;
  };
  std::vector<std::string> hints;
  for (GitHint hint : rule.gitHints) hints.emplace_back(rawValue(hint));
  std::cout << rule.id.uuidString() << "  “" << rule.name << "”\n"
            << "  " << decisionLabel(rule.decision) << ": " << purposeLabel(rule.purpose) << "\n"
            << "  " << kSecurityConditionsLabel << "\n"
            << "    " << kKeysLabel << ": " << values(rule.keyFingerprints, "none") << "\n"
            << "    " << kHostsLabel << ": " << values(rule.hostKeys, "none") << "\n"
            << "    " << kAllowForwardedLabel << ": " << (rule.allowForwarded ? "yes" : "no")
            << "\n";
  if (rule.forwardedOnly) std::cout << "    " << kForwardedOnlyLabel << ": yes\n";
  std::cout << "  " << kGuardrailsLabel << "\n"
            << "    " << kAppsLabel << ": " << values(rule.appIdentifiers, "none") << "\n"
            << "    " << kFoldersLabel << ": " << values(rule.directoryPrefixes, "none") << "\n"
            << "    " << kGitTransfersLabel << ": " << values(hints, "none") << "\n"
            << "  " << ruleExplanation(rule) << "\n";
}

std::vector<RuleTemplate> currentTemplates() {
  return ruleTemplates(options.templateHostKey, options.codingAgent);
}

void listTemplates() {
  std::vector<RuleTemplate> templates = currentTemplates();
  if (options.json) {
    JSON array = JSON::array();
    for (size_t i = 0; i < templates.size(); ++i)
      array.push_back(
          {{"number", i + 1}, {"title", templates[i].title}, {"rule", toJSON(templates[i].rule)}});
    return printJSON(array);
  }
  for (size_t i = 0; i < templates.size(); ++i)
    std::cout << i + 1 << ". " << templates[i].title << "\n";
}

void list() {
  RulesFile file = readRules(SupportState::open(), true);
  if (options.json) {
    JSON array = JSON::array();
    for (const Rule& rule : file.rules) array.push_back(toJSON(rule));
    return printJSON(array);
  }
  if (file.rules.empty() && file.state != RulesFile::State::tampered)
    std::cout << kNoRulesText << "\n";
  for (const Rule& rule : file.rules) printRule(rule);
}

// Whether `text` is a host key fingerprint as ssh-keygen -lf prints it: "SHA256:" and the 43
// unpadded base64 characters of the digest.
bool isHostKeyFingerprint(std::string_view text) {
  constexpr std::string_view kPrefix = "SHA256:";
  if (!text.starts_with(kPrefix) || text.size() != kPrefix.size() + 43) return false;
  return std::ranges::all_of(text.substr(kPrefix.size()), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '/';
  });
}

// Refuses host keys and folders that could never match a request.
void checkConditions(const Rule& rule) {
  for (const std::string& hostKey : rule.hostKeys)
    if (!isHostKeyFingerprint(hostKey))
      throw CommandFailure("“" + hostKey +
                           "” is not a host key fingerprint: SHA256: and 43 base64 characters, as "
                           "ssh-keygen -lf prints them");
  for (const std::string& folder : rule.directoryPrefixes)
    if (!folder.starts_with('/'))
      throw CommandFailure("“" + folder + "” is not an absolute folder; --dir takes one such as " +
                           "/home/me/src");
}

// An allow rule without keys, hosts, programs or folders signs for any program that reaches the
// agent: it takes an answer of its own on a terminal, and --allow-any without one.
void confirmAllowingAny(const Rule& rule) {
  const bool unconditional = rule.keyFingerprints.empty() && rule.hostKeys.empty() &&
                             rule.appIdentifiers.empty() && rule.directoryPrefixes.empty();
  if (rule.decision != Decision::allow || !unconditional || options.allowAny) return;
  const std::string warning = "This rule lets every key sign for every host without asking you.";
  if (!::isatty(STDIN_FILENO))
    throw CommandFailure(warning + " Add --allow-any to save it without a terminal.", 2);
  if (!confirm(warning + " Save it anyway?")) throw CommandFailure("nothing changed");
}

void saveNewRule(const SupportState& support, RulesFile& file, Rule rule) {
  checkConditions(rule);
  printRule(rule);
  confirmAllowingAny(rule);
  confirmChange("Confirm to " + saveRuleConfirmation(rule.name) + ".", options.yes, "save a rule");
  file.rules.push_back(rule);
  RulesFile::save(support, file.rules);
  notifyAgentOfChange();
  std::cout << "Saved the rule “" << rule.name << "” (" << rule.id.uuidString() << ").\n";
}

Rule templateRule() {
  if (options.hostKeys.size() > 1) throw CommandFailure("a template takes one --host-key");
  if (!options.hostKeys.empty()) options.templateHostKey = options.hostKeys.front();
  std::vector<RuleTemplate> templates = currentTemplates();
  size_t number = *options.templateNumber;
  if (number < 1 || number > templates.size())
    throw CommandFailure("there are " + std::to_string(templates.size()) +
                         " templates with these options (see quorvane rules templates)");
  Rule rule = templates[number - 1].rule;
  if (!options.name.empty()) rule.name = options.name;
  return rule;
}

// The rule the options describe.
Rule customRule(const SupportState& support) {
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
  return rule;
}

void add() {
  SupportState support = SupportState::open();
  RulesFile file = readRules(support);
  saveNewRule(support, file, options.templateNumber ? templateRule() : customRule(support));
}

void remove() {
  SupportState support = SupportState::open();
  RulesFile file = readRules(support);
  auto found = std::ranges::find_if(
      file.rules, [](const Rule& rule) { return rule.id.uuidString() == options.deleteID; });
  if (found == file.rules.end()) throw CommandFailure("no rule has the id " + options.deleteID);
  const std::string name = found->name;
  confirmChange("Confirm to " + deleteRuleConfirmation(name) + ".", options.yes, "delete a rule");
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

  CLI::App* addCommand =
      rules->add_subcommand("add", "add a rule; conditions left out match anything");
  addCommand->add_option("--name", options.name, "shown in prompts and the log");
  addCommand
      ->add_option("--decision", options.decision, "allow, askLocal (default), askRemote or deny")
      ->check(CLI::IsMember({"allow", "askLocal", "askRemote", "deny"}));
  addCommand->add_option("--purpose", options.purpose,
                         "any (default), login, git, signature, signature:NAMESPACE or other");
  addCommand->add_option("--key", options.keys, "a key's name or fingerprint (repeatable)");
  addCommand->add_option("--host-key", options.hostKeys,
                         "a server's host key fingerprint (repeatable)");
  addCommand->add_option("--app", options.apps, "a program's signing identifier (repeatable)");
  addCommand->add_option("--dir", options.directories, "only in this folder or below (repeatable)");
  addCommand->add_option("--git", options.gitHints, "fetch or push (repeatable)")
      ->check(CLI::IsMember({"fetch", "push"}));
  addCommand->add_flag("--allow-forwarded", options.allowForwarded,
                       "also for connections forwarded with ssh -A");
  addCommand->add_flag("--yes", options.yes, "do not ask for confirmation");
  addCommand->add_flag("--allow-any", options.allowAny,
                       "confirm an allow rule that matches every key and every host");
  CLI::Option* templateOption = addCommand->add_option(
      "--template", options.templateNumber,
      "start from template N of quorvane rules templates (with the same --host-key and "
      "--coding-agent)");
  addCommand->add_option("--coding-agent", options.codingAgent,
                         "a coding agent's identifier, for the templates");
  for (const char* custom :
       {"--decision", "--purpose", "--key", "--app", "--dir", "--git", "--allow-forwarded"})
    templateOption->excludes(custom);
  addCommand->callback(add);

  CLI::App* templatesCommand = rules->add_subcommand(
      "templates", "list the templates that quorvane rules add --template uses");
  templatesCommand->add_option("--host-key", options.templateHostKey,
                               "a server's host key fingerprint, for the templates of one host");
  templatesCommand->add_option("--coding-agent", options.codingAgent,
                               "a coding agent's identifier, for its templates");
  addJSONFlag(templatesCommand, options.json);
  templatesCommand->callback(listTemplates);

  CLI::App* deleteCommand = rules->add_subcommand("delete", "delete a rule");
  deleteCommand->add_option("ID", options.deleteID, "the rule's id (see quorvane rules list)")
      ->required();
  deleteCommand->add_flag("--yes", options.yes, "do not ask for confirmation");
  deleteCommand->callback(remove);
}

}  // namespace quorvane::cli
