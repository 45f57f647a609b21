#include <fmt/format.h>

#include "brisq/command_groups.h"
#include "brisq/exit_codes.h"
#include "brisq/mailbox_records.h"
#include "brisq/output.h"
#include "panel/tls.h"

namespace brisq {
namespace {

void Set(Call& call) {
  const std::string domain = call.arguments.Text("DOMAIN");
  for (const std::string& warning :
       brisq_panel::SetCertificate(domain, call.arguments.Text("--cert"),
                                   call.arguments.Text("--key"), call.arguments.Has("--force")))
    call.output.Warn(warning);
  call.output.Say(fmt::format("domain {} presents {}", domain, call.arguments.Text("--cert")));
}

void Unset(Call& call) {
  const std::string domain = call.arguments.Text("DOMAIN");
  brisq_panel::UnsetCertificate(domain);
  call.output.Say(fmt::format("domain {} has no certificate of its own any more", domain));
}

void List(Call& call) {
  for (const auto& certificate : brisq_panel::ListCertificates())
    call.output.Row({{"domain", certificate.domain},
                     {"expires", certificate.expires},
                     {"cert", certificate.cert},
                     {"key", certificate.key}});
}

void Check(Call& call) {
  for (const auto& certificate : brisq_panel::ListCertificates()) {
    call.output.Row({{"domain", certificate.domain},
                     {"expires", certificate.expires},
                     {"days_left", certificate.days_left},
                     {"names", Joined(certificate.names)},
                     {"key_matches", certificate.key_matches},
                     {"findings", Joined(certificate.findings)}});
    if (!certificate.findings.empty()) call.exit_code = kExitFindings;
  }
}

void Prune(Call& call) {
  for (const auto& snippet : brisq_panel::PruneSnippets())
    call.output.Row({{"removed", snippet.file}, {"reason", snippet.reason}});
}

const Operand kDomain = {"DOMAIN", "name of the domain"};

}  // namespace

std::vector<Command> TlsCommands() {
  return {
      {.noun = "tls",
       .verb = "set",
       .summary = "Have Dovecot present a certificate for a domain.",
       .operands = {kDomain},
       .options = {{"--cert", "FILE", "certificate and those that lead to its issuer, PEM", true},
                   {"--key", "FILE", "private key without a passphrase, PEM", true},
                   {"--force", "", "also when the certificate does not cover the domain"}},
       .changes = true,
       .run = Set},
      {.noun = "tls",
       .verb = "unset",
       .summary = "Have Dovecot present its default certificate for a domain again.",
       .operands = {kDomain},
       .changes = true,
       .run = Unset},
      {.noun = "tls",
       .verb = "list",
       .summary = "List the domains that have a certificate.",
       .run = List,
       .reads = true},
      {.noun = "tls",
       .verb = "check",
       .summary = "Check certificates, keys, links and snippets; exit code 5 with findings.",
       .run = Check,
       .reads = true},
      {.noun = "tls",
       .verb = "prune",
       .summary = "Remove snippets whose certificate or key file is gone.",
       .changes = true,
       .run = Prune},
  };
}

}  // namespace brisq
