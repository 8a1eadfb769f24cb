#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "dname.h"
#include "globerr.h"
#include "names/distinguished_name.h"
#include "osenv.h"
#include "testing/temp_data_directory.h"

namespace {

using namespace tarnwick::rt::names;

std::string canonical(const char* name, const char* pattern = nullptr) {
  char out[MAXUSERNAME];
  WORD length = 0xFFFF;
  EXPECT_EQ(DNCanonicalize(0, pattern, name, out, sizeof out, &length), NOERROR) << name;
  EXPECT_EQ(length, std::strlen(out));
  return out;
}

std::string abbreviated(const char* name) {
  char out[MAXUSERNAME];
  WORD length = 0xFFFF;
  EXPECT_EQ(DNAbbreviate(0, nullptr, name, out, sizeof out, &length), NOERROR) << name;
  EXPECT_EQ(length, std::strlen(out));
  return out;
}

std::string part(WORD length, const char* pointer) {
  return pointer == nullptr ? std::string() : std::string(pointer, length);
}

DN_COMPONENTS parsed(const char* name) {
  DN_COMPONENTS comp;
  std::memset(&comp, 0xAB, sizeof comp);
  EXPECT_EQ(DNParse(0, nullptr, name, &comp, sizeof comp), NOERROR) << name;
  return comp;
}

TEST(DistinguishedNames, AbbreviatedAndCanonicalFormsConvertBothWays) {
  const struct {
    const char* abbreviated;
    const char* canonical;
  } cases[] = {
      {"John Doe/Sales/Acme", "CN=John Doe/OU=Sales/O=Acme"},
      {"Mail1/Acme", "CN=Mail1/O=Acme"},
      {"Jayne Doe/Inside Sales/Sales/ABCorp/US", "CN=Jayne Doe/OU=Inside Sales/OU=Sales/O=ABCorp/C=US"},
      {"Reuben D. Smith/Ottawa/Acme/CA", "CN=Reuben D. Smith/OU=Ottawa/O=Acme/C=CA"},
      {"Jayne Doe/Sales$/Marketing/Acme/GB", "CN=Jayne Doe/OU=Sales$/Marketing/O=Acme/C=GB"},
      {"Ann Lee/U4/U3/U2/U1/Acme/DE", "CN=Ann Lee/OU=U4/OU=U3/OU=U2/OU=U1/O=Acme/C=DE"},
      {"Srv1/Org@OrgDomain", "CN=Srv1/O=Org@OrgDomain"},
      {"Jo/Acme/USA", "CN=Jo/OU=Acme/O=USA"},   // three letters: an organisation
      {"Mail1/US", "CN=Mail1/O=US"},            // two components: no room for a country
      {"*/Sales/Acme", "*/OU=Sales/O=Acme"},    // wildcard entries keep no label
      {"Jo/Acme$=Corp", "CN=Jo/O=Acme$=Corp"},  // escaped '='
      {"M\x81ller/K\x94ln/Acme", "CN=M\x81ller/OU=K\x94ln/O=Acme"},  // LMBCS group-1 bytes
  };
  for (const auto& c : cases) {
    EXPECT_EQ(canonical(c.abbreviated), c.canonical);
    EXPECT_EQ(canonical(c.canonical), c.canonical);  // already canonical: unchanged
    EXPECT_EQ(abbreviated(c.canonical), c.abbreviated);
    EXPECT_EQ(abbreviated(c.abbreviated), c.abbreviated);
    EXPECT_EQ(common_name(c.canonical), common_name(c.abbreviated));
  }
  // Labels are matched without case and written in capitals.
  EXPECT_EQ(canonical("cn=John Doe/ou=Sales/o=Acme/c=us"), "CN=John Doe/OU=Sales/O=Acme/C=us");
  EXPECT_EQ(abbreviated("cn=John Doe/o=Acme"), "John Doe/Acme");
  // Organisation-level names have no CN.
  EXPECT_EQ(abbreviated("OU=Sales/O=Acme"), "Sales/Acme");
  EXPECT_EQ(abbreviated("O=Acme"), "Acme");
}

TEST(DistinguishedNames, FlatAndNonstandardNamesPassThroughUnchanged) {
  const char* const unchanged[] = {
      "John Doe",                                     // flat, with a space
      "Sales Team",                                   // a group name
      "jdoe@acme.com",                                // Internet address
      "Jayne Doe <jdoe@acme.example>",                // with a phrase
      "CN=John/DC=acme/DC=com",                       // LDAP components
      "CN=John/O=Acme/OU=Sales",                      // out of order
      "CN=John/OU=Sales",                             // OU without O
      "John/OU=Sales/O=Acme/X=1",                     // unknown label
      "Ann/U5/U4/U3/U2/U1/Acme",                      // five OUs
      "CN=Ann/OU=5/OU=4/OU=3/OU=2/OU=1/O=Acme",       // five OUs, canonical
      "John//Acme",                                   // empty component
      "John/Acme@",                                   // empty domain
      "CN=John/O=Acme=Corp",                          // '=' in a value needs "$="
      "/C=GB/A=RN/P=Red Squadron/O=CAM/CN=Jayne Doe", // country first
      "",
  };
  for (const char* name : unchanged) {
    EXPECT_EQ(canonical(name), name);
    EXPECT_EQ(abbreviated(name), name);
  }
  EXPECT_EQ(common_name("John Doe"), "John Doe");
  EXPECT_EQ(common_name("Jayne Doe <jdoe@acme.example>"), "Jayne Doe");
  EXPECT_FALSE(is_hierarchical("John Doe"));
  EXPECT_TRUE(is_hierarchical("John Doe/Acme"));
  EXPECT_FALSE(is_hierarchical("Ann/U5/U4/U3/U2/U1/Acme"));
}

TEST(DistinguishedNames, SlashAndEqualsInsideLmbcsCharactersAreNotDelimiters) {
  // 0x14 0x2F 0x3D is U+2F3D in the Unicode group; 0x10 0x83 0x40 a Japanese
  // character whose second byte is '@'.
  const std::string cn = "K\x14\x2F\x3Dn\x10\x83\x40";
  const std::string name = cn + "/Acme";
  EXPECT_EQ(canonical(name.c_str()), "CN=" + cn + "/O=Acme");
  EXPECT_EQ(common_name(name), cn);
  EXPECT_EQ(canonical(cn.c_str()), cn);  // flat: no delimiter inside
}

TEST(DistinguishedNames, TemplateCompletesANameEndingInASlash) {
  EXPECT_EQ(canonical("Mary Tsen/", "CN=Admin/OU=Sales/O=Acme/C=US"), "CN=Mary Tsen/OU=Sales/O=Acme/C=US");
  EXPECT_EQ(canonical("Mary Tsen/", "Admin/Acme"), "CN=Mary Tsen/O=Acme");
  // Without a usable template the name stays as written.
  EXPECT_EQ(canonical("Mary Tsen/", "Admin"), "Mary Tsen/");
  EXPECT_EQ(canonicalize("Mary Tsen/"), "Mary Tsen/");
}

TEST(DistinguishedNames, DefaultTemplateIsTheServerName) {
  tarnwick::testing::TempDataDirectory data("ServerName=CN=Mail1/OU=Srv/O=Acme\n");
  EXPECT_EQ(canonical("Mary Tsen/"), "CN=Mary Tsen/OU=Srv/O=Acme");
  EXPECT_EQ(canonical("Mary Tsen/", "CN=Other/O=Elsewhere"), "CN=Mary Tsen/O=Elsewhere");
  EXPECT_EQ(canonical("Mary Tsen/Sales/Acme"), "CN=Mary Tsen/OU=Sales/O=Acme");
}

TEST(DistinguishedNames, SameNameComparesCanonicalFormsWithoutCase) {
  EXPECT_TRUE(same_name("John Doe/Sales/Acme", "CN=john doe/OU=SALES/O=acme"));
  EXPECT_TRUE(same_name("J\x81rgen/Acme", "CN=J\x9ARGEN/O=Acme"));  // LMBCS ü and Ü differ as bytes
  EXPECT_FALSE(same_name("John Doe/Sales/Acme", "John Doe/Acme"));
  EXPECT_FALSE(same_name("John Doe/Acme", "John Doe"));
}

TEST(DistinguishedNames, ParseFillsComponentsWithRightmostUnitFirst) {
  const char* name = "Jayne Doe/Sales$/Marketing/Acme/GB";
  DN_COMPONENTS comp = parsed(name);
  EXPECT_EQ(comp.Flags, 0u);
  EXPECT_EQ(part(comp.CNLength, comp.CN), "Jayne Doe");
  EXPECT_EQ(part(comp.OULength[0], comp.OU[0]), "Sales$/Marketing");
  EXPECT_EQ(comp.OULength[1], 0);
  EXPECT_EQ(part(comp.OLength, comp.O), "Acme");
  EXPECT_EQ(part(comp.CLength, comp.C), "GB");
  EXPECT_EQ(part(comp.HierarchyOnlyLength, comp.HierarchyOnly), "Sales$/Marketing/Acme/GB");
  EXPECT_EQ(comp.Domain, nullptr);
  EXPECT_EQ(comp.CN, name);  // pointers into the input

  comp = parsed("CN=Ann/OU=U4/OU=U3/OU=U2/OU=U1/O=Acme/C=DE");
  EXPECT_EQ(part(comp.OULength[0], comp.OU[0]), "U1");
  EXPECT_EQ(part(comp.OULength[3], comp.OU[3]), "U4");
  EXPECT_EQ(part(comp.HierarchyOnlyLength, comp.HierarchyOnly), "OU=U4/OU=U3/OU=U2/OU=U1/O=Acme/C=DE");

  comp = parsed("Ann/U4/U3/U2/U1/Acme");
  EXPECT_EQ(part(comp.OULength[0], comp.OU[0]), "U1");
  EXPECT_EQ(part(comp.OULength[3], comp.OU[3]), "U4");
  EXPECT_EQ(comp.CLength, 0);
}

TEST(DistinguishedNames, ParseOfFlatAddressAndCountryFirstNames) {
  DN_COMPONENTS comp = parsed("Jayne Doe <jdoe@acme.example>");
  EXPECT_EQ(comp.Flags, static_cast<DWORD>(DN_NONDISTINGUISHED));
  EXPECT_EQ(part(comp.CNLength, comp.CN), "Jayne Doe");
  EXPECT_EQ(part(comp.PhraseLength, comp.Phrase), "Jayne Doe");
  EXPECT_EQ(part(comp.LPLength, comp.LP), "jdoe");
  EXPECT_EQ(part(comp.DomainLength, comp.Domain), "acme.example");
  EXPECT_EQ(part(comp.Address821Length, comp.Address821), "jdoe@acme.example");

  comp = parsed("John Doe");
  EXPECT_EQ(comp.Flags, static_cast<DWORD>(DN_NONDISTINGUISHED));
  EXPECT_EQ(part(comp.CNLength, comp.CN), "John Doe");
  EXPECT_EQ(comp.OLength, 0);

  const char* x400 = "/C=GB/A=RN/P=Red Squadron/O=CAM/CN=Jayne Doe@FooDomain";
  comp = parsed(x400);
  EXPECT_EQ(comp.Flags, static_cast<DWORD>(DN_NONABBREV));
  EXPECT_EQ(part(comp.CLength, comp.C), "GB");
  EXPECT_EQ(part(comp.OLength, comp.O), "CAM");
  EXPECT_EQ(part(comp.CNLength, comp.CN), "Jayne Doe");
  EXPECT_EQ(part(comp.DomainLength, comp.Domain), "FooDomain");
  EXPECT_EQ(part(comp.PRMDLength, comp.PRMD), "Red Squadron");
  EXPECT_EQ(part(comp.ADMDLength, comp.ADMD), "RN");
  EXPECT_EQ(part(comp.LPLength, comp.LP), "/C=GB/A=RN/P=Red Squadron/O=CAM/CN=Jayne Doe");
  EXPECT_EQ(part(comp.Address821Length, comp.Address821), x400);

  comp = parsed("/C=GB/O=CAM/S=Doe/G=Jayne");
  EXPECT_EQ(part(comp.SLength, comp.S), "Doe");
  EXPECT_EQ(part(comp.GLength, comp.G), "Jayne");
  EXPECT_EQ(comp.CNLength, 0);

  comp = parsed("CN=John/OU=Sales/O=Acme/DC=acme/DC=com");
  EXPECT_EQ(comp.Flags, static_cast<DWORD>(DN_NONSTANDARD));
  EXPECT_EQ(part(comp.DCLength[0], comp.DC[0]), "acme");
  EXPECT_EQ(part(comp.DCLength[1], comp.DC[1]), "com");
  EXPECT_EQ(part(comp.OULength[0], comp.OU[0]), "Sales");
}

TEST(DistinguishedNames, BadArgumentsGiveAStatusNeverACrash) {
  DN_COMPONENTS comp;
  EXPECT_EQ(DNParse(0, nullptr, "John/Acme", &comp, sizeof comp - 1), ERR_DN_COMP_VERSION);
  EXPECT_EQ(DNParse(0, nullptr, "John/Acme", &comp, 0), ERR_DN_COMP_VERSION);
  EXPECT_EQ(DNParse(0, nullptr, nullptr, &comp, sizeof comp), ERR_BAD_PARAM);
  EXPECT_EQ(DNParse(0, nullptr, "John/Acme", nullptr, sizeof comp), ERR_BAD_PARAM);
  // More OUs than the structure holds.
  EXPECT_EQ(DNParse(0, nullptr, "Ann/U5/U4/U3/U2/U1/Acme", &comp, sizeof comp), ERR_DN_PARSE);

  char out[8] = "xxxxxxx";
  WORD length = 77;
  EXPECT_EQ(DNCanonicalize(0, nullptr, nullptr, out, sizeof out, &length), ERR_BAD_PARAM);
  EXPECT_EQ(out[0], '\0');
  EXPECT_EQ(length, 0);
  EXPECT_EQ(DNCanonicalize(0, nullptr, "John/Acme", nullptr, 10, &length), ERR_BAD_PARAM);
  EXPECT_EQ(DNAbbreviate(0, nullptr, "CN=John/O=Acme", out, 0, &length), ERR_BAD_PARAM);
  EXPECT_EQ(DNAbbreviate(0, nullptr, "CN=John/O=Acme", out, sizeof out, nullptr), NOERROR);
  EXPECT_STREQ(out, "John/Ac");
}

TEST(DistinguishedNames, OutputIsCutToTheBufferOnACharacterBoundary) {
  const char* name = "John Doe/Sales/Acme";  // canonical: 27 bytes
  const std::string full = "CN=John Doe/OU=Sales/O=Acme";
  for (WORD size = 1; size <= full.size() + 2; ++size) {
    std::string buffer(size + 2, '#');
    WORD length = 0;
    ASSERT_EQ(DNCanonicalize(0, nullptr, name, buffer.data() + 1, size, &length), NOERROR);
    const size_t expected = std::min<size_t>(full.size(), size - 1u);
    EXPECT_EQ(length, expected);
    EXPECT_EQ(buffer.substr(1, length), full.substr(0, expected));
    EXPECT_EQ(buffer[1 + length], '\0');
    EXPECT_EQ(buffer[0], '#');
    EXPECT_EQ(buffer[size + 1], '#') << "wrote past the buffer, size " << size;
  }
  // A three-byte LMBCS character is kept whole or left out.
  const std::string japanese = "Ann\x10\x93\xFA/Acme";  // "Ann日/Acme"
  char out[9];
  WORD length = 0;
  ASSERT_EQ(DNAbbreviate(0, nullptr, japanese.c_str(), out, 6, &length), NOERROR);
  EXPECT_EQ(std::string(out, length), "Ann");
  ASSERT_EQ(DNAbbreviate(0, nullptr, japanese.c_str(), out, 7, &length), NOERROR);
  EXPECT_EQ(std::string(out, length), "Ann\x10\x93\xFA");
}

}  // namespace
