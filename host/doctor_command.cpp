#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>

#include "host/commands.h"
#include "host/doctor_checks.h"
#include "host/json_line.h"
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
  CJsonLine line;
  line.AddNumber("exitCode", diagnosis.exitCode);
  line.AddText("text", diagnosis.sentence);
  line.BeginArray("findings");
  for (const Finding& finding : findings) {
    line.BeginObject();
    line.AddText("subject", finding.subject);
    line.AddText("verdict", NameOf(finding.verdict).word);
    line.AddText("text", finding.text);
    line.EndObject();
  }
  line.EndArray();
  WriteLine(line.Finish());
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
