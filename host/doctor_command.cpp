#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>

#include "host/commands.h"
#include "host/doctor_checks.h"
#include "host/output.h"

namespace {

using Verdict = Finding::Verdict;

// In the order of their lines.
constexpr std::array<DoctorCheck, 4> CHECKS = {CheckModule, CheckCollector, CheckGuard, CheckTrace};

constexpr size_t SUBJECT_WIDTH = 16;

struct VerdictName {
  const char* mark;  // before a line
  const char* word;  // in JSON
};

VerdictName NameOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::RIGHT:
      return {"ok     ", "right"};
    case Verdict::WARNING:
      return {"warn   ", "warning"};
    case Verdict::WRONG:
      return {"WRONG  ", "wrong"};
    default:
      return {"?      ", "unknown"};
  }
}

// What all findings together come to.
struct Diagnosis {
  int exitCode;
  const char* sentence;
};

Diagnosis Summarize(const Findings& findings) {
  const auto has = [&](Verdict verdict) {
    return std::any_of(findings.begin(), findings.end(),
                       [=](const Finding& finding) { return finding.verdict == verdict; });
  };
  if (has(Verdict::WRONG) || has(Verdict::UNKNOWN)) {
    return {EX_UNAVAILABLE, "No archive could be created now; begin with the first WRONG line."};
  }
  if (has(Verdict::WARNING)) {
    return {EX_CONFIG, "An archive could be created now, but see to the lines that warn."};
  }
  return {EXIT_SUCCESS, "An archive could be created now."};
}

void Print(const Findings& findings, const Diagnosis& diagnosis) {
  for (const Finding& finding : findings) {
    std::string subject = finding.subject;
    subject.resize(std::max(SUBJECT_WIDTH, subject.size() + 1), ' ');
    WriteLine(NameOf(finding.verdict).mark + subject + finding.text);
  }
  WriteLine(diagnosis.sentence);
}

// On one line: {"exitCode":0,"text":"...","findings":[{"subject":...,"verdict":...,"text":...}]}
void PrintJson(const Findings& findings, const Diagnosis& diagnosis) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  const auto text = [&](const char* key, const std::string& value) {
    writer.Key(key);
    writer.String(value.c_str());
  };
  writer.StartObject();
  writer.Key("exitCode");
  writer.Int(diagnosis.exitCode);
  text("text", diagnosis.sentence);
  writer.Key("findings");
  writer.StartArray();
  for (const Finding& finding : findings) {
    writer.StartObject();
    text("subject", finding.subject);
    text("verdict", NameOf(finding.verdict).word);
    text("text", finding.text);
    writer.EndObject();
  }
  writer.EndArray();
  writer.EndObject();
  WriteLine(buffer.GetString());
}

}  // namespace

int RunDoctor(const HostOptions& options) {
  Findings findings;
  for (const DoctorCheck check : CHECKS) {
    const Findings found = check(options);
    findings.insert(findings.end(), found.begin(), found.end());
  }
  const Diagnosis diagnosis = Summarize(findings);
  if (options.isJson) {
    PrintJson(findings, diagnosis);
  } else {
    Print(findings, diagnosis);
  }
  if (geteuid() != 0) {
    WriteMessage("You are not root, as the agent is: it may do more than was seen here.");
  }
  return diagnosis.exitCode;
}
