#include "tests/unit/panel/certificate_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>

namespace panel_test {

namespace {

std::string OpensslTime(long offset) {
  const std::time_t time = std::time(nullptr) + offset;
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  char text[32];
  return std::string(text, std::strftime(text, sizeof text, "%Y%m%d%H%M%SZ", &parts));
}

// The request tool can't make a certificate that has expired; the tool of an authority can.
constexpr const char* kAuthority =
    "[ca]\ndefault_ca=own\n[own]\ndatabase=index\nnew_certs_dir=.\nrand_serial=yes\n"
    "default_md=sha256\npolicy=any\ncopy_extensions=copy\nunique_subject=no\n"
    "[any]\ncommonName=supplied\n";

}  // namespace

CertificateFiles MakeCertificate(const support::TempDir& dir, const std::string& name,
                                 const std::string& names, long begin, long end) {
  const CertificateFiles files{dir / (name + ".crt"), dir / (name + ".key")};
  const std::string work = dir.MakeFolder("openssl-" + name);
  dir.Write("openssl-" + name + "/authority.cnf", kAuthority);
  dir.Write("openssl-" + name + "/index", "");
  const std::string extension = names.empty() ? "" : " -addext subjectAltName=" + names;
  const std::string script =
      "cd " + work + " && { openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 " +
      "-nodes -keyout " + files.key + " -subj /CN=" + name + ".common -out request" + extension +
      " && openssl ca -selfsign -batch -notext -config authority.cnf -keyfile " + files.key +
      " -in request -out " + files.cert + " -startdate " + OpensslTime(begin) + " -enddate " +
      OpensslTime(end) + "; } >log 2>&1";
  EXPECT_EQ(0, std::system(script.c_str())) << support::ReadFile(work + "/log");
  EXPECT_EQ(0, ::chmod(files.key.c_str(), 0600));
  return files;
}

}  // namespace panel_test
