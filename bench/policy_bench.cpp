// The policy engine runs once (or twice) per sign request and the rule list is decoded on every
// reload: evaluation over 10 and 100 rules with a few grants, and decoding 100 rules.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "Policy/PolicyEngine.h"

namespace quorvane {
namespace {

const Date kNow{1'800'000'000};

RequestOrigin editor() {
  RequestOrigin origin;
  origin.appIdentifier = "com.example.editor";
  origin.appTeamID = "TEAM1";
  origin.appName = "Editor";
  origin.chainPaths = {"/usr/bin/ssh", "/usr/bin/git", "/opt/editor/bin/editor"};
  origin.workingDirectory = "/home/me/src/project/app";
  origin.gitHint = GitHint::push;
  return origin;
}

// Rules of every shape; most name other keys, hosts, programs or folders, so that matching runs
// to different depths, and none denies this benchmark's requests.
std::vector<Rule> makeRules(int count) {
  std::vector<Rule> rules;
  for (int i = 0; i < count; ++i) {
    Rule rule;
    rule.id = UUID::random();
    rule.name = "rule " + std::to_string(i);
    rule.decision = i % 3 == 0 ? Decision::askRemote : Decision::askLocal;
    const PurposeMatch kPurposes[] = {PurposeMatch::login(), PurposeMatch::signature("git"),
                                      PurposeMatch::any(), PurposeMatch::signature()};
    rule.purpose = kPurposes[i % 4];
    if (i % 2 == 0) rule.keyFingerprints = {"SHA256:key-" + std::to_string(i % 5)};
    if (i % 3 == 1) rule.hostKeys = {"SHA256:host-" + std::to_string(i % 7)};
    if (i % 4 == 2) rule.appIdentifiers = {"com.example.tool" + std::to_string(i)};
    if (i % 5 == 3) rule.directoryPrefixes = {"/home/me/work", "/home/me/src/project"};
    if (i % 6 == 4) rule.gitHints = {GitHint::fetch};
    rules.push_back(std::move(rule));
  }
  return rules;
}

PolicyEngine makeEngine(int ruleCount) {
  PolicyEngine engine;
  engine.rules = makeRules(ruleCount);
  for (const char* host : {"SHA256:host-1", "SHA256:host-2", "SHA256:host-3"})
    engine.addGrant({"SHA256:key-1", RequestPurpose::login(host, "git"), editor()}, 900, kNow);
  engine.addGrant({"SHA256:key-1", RequestPurpose::signature("git"), editor()}, 900, kNow);
  return engine;
}

void BM_EvaluateLogin(benchmark::State& state) {
  PolicyEngine engine = makeEngine(static_cast<int>(state.range(0)));
  PolicyRequest request{"SHA256:key-1", RequestPurpose::login("SHA256:host-3", "git"), editor()};
  for (auto _ : state) benchmark::DoNotOptimize(engine.evaluate(request, kNow + 60));
}
BENCHMARK(BM_EvaluateLogin)->Arg(10)->Arg(100);

void BM_EvaluateUngrantedSignature(benchmark::State& state) {
  PolicyEngine engine = makeEngine(static_cast<int>(state.range(0)));
  PolicyRequest request{"SHA256:key-2", RequestPurpose::signature("file"), editor()};
  for (auto _ : state) benchmark::DoNotOptimize(engine.evaluate(request, kNow + 60));
}
BENCHMARK(BM_EvaluateUngrantedSignature)->Arg(10)->Arg(100);

void BM_DecodeRules(benchmark::State& state) {
  JSON list = JSON::array();
  for (const Rule& rule : makeRules(100)) list.push_back(toJSON(rule));
  std::string text = list.dump();
  for (auto _ : state) {
    JSON document = parseJSON(text);
    benchmark::DoNotOptimize(decodeRules(JSONReader(document)));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_DecodeRules);

}  // namespace
}  // namespace quorvane
