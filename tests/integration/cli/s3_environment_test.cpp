#include <cli/failure.hpp>
#include <cli/profile_file.hpp>
#include <cli/s3_environment.hpp>

#include <gmock/gmock.h>

#include <chrono>
#include <map>
#include <string>

namespace cli_test {
namespace {

namespace s3 = foundation::storage::provider::s3;
using cli::parseProfiles;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

using Texts = std::map<std::string, std::string, std::less<>>;

s3::S3Options optionsOf(Texts const& variables, Texts const& files = {}) {
    auto const find = [](Texts const& texts, std::string_view name) -> std::optional<std::string> {
        auto const found = texts.find(name);
        return found == texts.end() ? std::nullopt : std::optional(found->second);
    };
    return cli::s3Options({[&](char const* name) { return find(variables, name); },
                           [&](std::string const& path) { return find(files, path); }});
}

TEST(ProfileFile, HasValuesUnderHeadings) {
    EXPECT_THAT(parseProfiles("[default]\nregion = eu-west-1\naws_access_key_id=ABC\n"
                              "[profile  far ]\r\nregion\t=\tus-west-2\r\n"),
                UnorderedElementsAre(
                    Pair("default", UnorderedElementsAre(Pair("region", "eu-west-1"),
                                                         Pair("aws_access_key_id", "ABC"))),
                    Pair("profile far", UnorderedElementsAre(Pair("region", "us-west-2")))));
}

TEST(ProfileFile, HasHeadingsInQuotesAndKeysInAnyCase) {
    EXPECT_THAT(parseProfiles("[profile \"a  b\"]\nRegion = one\nS3 =\n  Addressing_Style = Path\n"
                              "[ profile 'c d' ]\nREGION = two\n"
                              "[ann's]\nregion = three\n[profile \"open]\nregion = four\n"),
                UnorderedElementsAre(
                    Pair("profile a  b", UnorderedElementsAre(Pair("region", "one"), Pair("s3", ""),
                                                              Pair("s3.addressing_style", "Path"))),
                    Pair("profile c d", UnorderedElementsAre(Pair("region", "two"))),
                    Pair("ann's", UnorderedElementsAre(Pair("region", "three"))),
                    Pair("profile \"open", UnorderedElementsAre(Pair("region", "four")))));
}

TEST(ProfileFile, PassesOverCommentsAndWhatItDoesNotUnderstand) {
    EXPECT_THAT(parseProfiles("\xEF\xBB\xBF# first\nlost = value\n[a]\n; comment\nno value\n"
                              "key = value # comment\nother = a#b;c\n[broken\nkey = lost\n"),
                UnorderedElementsAre(
                    Pair("a", UnorderedElementsAre(Pair("key", "value"), Pair("other", "a#b;c")))));
}

TEST(ProfileFile, HasValuesBelowKeys) {
    EXPECT_THAT(parseProfiles("[a]\ns3 =\n  addressing_style = path\n  other = 1\nnext = 2\n"
                              "  indented = 3\n"),
                UnorderedElementsAre(Pair(
                    "a", UnorderedElementsAre(Pair("s3", ""), Pair("s3.addressing_style", "path"),
                                              Pair("s3.other", "1"), Pair("next", "2"),
                                              Pair("indented", "3")))));
}

TEST(ProfileFile, MayBeIndentedAsAWhole) {
    EXPECT_THAT(
        parseProfiles("[a]\n  s3 =\n      addressing_style = path\n    other = 1\n  region = eu\n"),
        UnorderedElementsAre(
            Pair("a", UnorderedElementsAre(Pair("s3", ""), Pair("s3.addressing_style", "path"),
                                           Pair("s3.other", "1"), Pair("region", "eu")))));
}

TEST(ProfileFile, TheLaterOfTwoValuesCounts) {
    EXPECT_THAT(parseProfiles("[a]\nkey = 1\n[b]\nkey = 2\n[a]\nkey = 3"),
                UnorderedElementsAre(Pair("a", UnorderedElementsAre(Pair("key", "3"))),
                                     Pair("b", UnorderedElementsAre(Pair("key", "2")))));
}

TEST(S3Environment, WithoutAnythingNobodyAsksThePublicStore) {
    s3::S3Options const options = optionsOf({});
    EXPECT_THAT(options.credentials.accessKey, IsEmpty());
    EXPECT_THAT(options.endpoint, IsEmpty());
    EXPECT_EQ(options.region, "us-east-1");
    EXPECT_EQ(options.addressing, s3::AddressingStyle::Automatic);
}

TEST(S3Environment, VariablesSayWhoAsksAndWhere) {
    s3::S3Options const options = optionsOf({{"AWS_ACCESS_KEY_ID", "access"},
                                             {"AWS_SECRET_ACCESS_KEY", "secret"},
                                             {"AWS_SESSION_TOKEN", "token"},
                                             {"AWS_DEFAULT_REGION", "eu-west-1"},
                                             {"AWS_ENDPOINT_URL", "http://one"},
                                             {"AWS_CA_BUNDLE", "/certificates"}});
    EXPECT_EQ(options.credentials.accessKey, "access");
    EXPECT_EQ(options.credentials.secretKey, "secret");
    EXPECT_EQ(options.credentials.sessionToken, "token");
    EXPECT_EQ(options.region, "eu-west-1");
    EXPECT_EQ(options.endpoint, "http://one");
    EXPECT_EQ(options.web.certificateFile, "/certificates");
}

TEST(S3Environment, TheNarrowerVariableCounts) {
    s3::S3Options const options = optionsOf({{"AWS_REGION", "eu-west-1"},
                                             {"AWS_DEFAULT_REGION", "us-west-2"},
                                             {"AWS_ENDPOINT_URL", "http://one"},
                                             {"AWS_ENDPOINT_URL_S3", "http://two"}});
    EXPECT_EQ(options.region, "eu-west-1");
    EXPECT_EQ(options.endpoint, "http://two");
}

TEST(S3Environment, CertificatesOfOtherProgramsCountBehindThoseOfStores) {
    Texts variables{{"SSL_CERT_FILE", "/three"}};
    EXPECT_EQ(optionsOf(variables).web.certificateFile, "/three");
    variables["CURL_CA_BUNDLE"] = "/two";
    EXPECT_EQ(optionsOf(variables).web.certificateFile, "/two");
    Texts const file{{"/c", "[default]\nca_bundle = /profile\n"}};
    variables["AWS_CONFIG_FILE"] = "/c";
    EXPECT_EQ(optionsOf(variables, file).web.certificateFile, "/profile");
    variables["AWS_CA_BUNDLE"] = "/one";
    EXPECT_EQ(optionsOf(variables, file).web.certificateFile, "/one");
}

TEST(S3Environment, AProfileHasNumbers) {
    Texts const file{{"/c", "[default]\nmax_attempts = 7\ncli_connect_timeout = 3\n"
                            "cli_read_timeout = 90\ns3 =\n  multipart_chunksize = 16MB\n"
                            "  max_concurrent_requests = 20\n"}};
    s3::S3Options options = optionsOf({{"AWS_CONFIG_FILE", "/c"}}, file);
    EXPECT_EQ(options.web.attempts, 7U);
    EXPECT_EQ(options.web.connectTimeout, std::chrono::seconds(3));
    EXPECT_EQ(options.web.stallTimeout, std::chrono::seconds(90));
    EXPECT_EQ(options.partSize, 16U << 20);
    EXPECT_EQ(options.concurrency, 20U);
    options = optionsOf({{"AWS_CONFIG_FILE", "/c"}, {"AWS_MAX_ATTEMPTS", "2"}}, file);
    EXPECT_EQ(options.web.attempts, 2U);
}

TEST(S3Environment, SizesHaveUnits) {
    auto const sizeOf = [](std::string const& text) {
        return optionsOf({{"AWS_CONFIG_FILE", "/c"}},
                         {{"/c", "[default]\ns3 =\n multipart_chunksize = " + text + "\n"}})
            .partSize;
    };
    EXPECT_EQ(sizeOf("9000000"), 9'000'000U);
    EXPECT_EQ(sizeOf("16 MB"), 16U << 20);
    EXPECT_EQ(sizeOf("16mib"), 16U << 20);
    EXPECT_EQ(sizeOf("8192KB"), 8U << 20);
    EXPECT_EQ(sizeOf("1GB"), 1U << 30);
    EXPECT_EQ(sizeOf("1"), 5U << 20) << "no store takes smaller ones";
    for (std::string const wrong :
         {"6GB", "x", "16 apples", "-1", "16M", "99999999999999999999", "16777217TB", "MB"}) {
        EXPECT_THROW(sizeOf(wrong), cli::Refusal) << wrong;
    }
}

TEST(S3Environment, WithoutATimeoutTheOperationsDeadlineCounts) {
    s3::S3Options const options =
        optionsOf({{"AWS_CONFIG_FILE", "/c"}},
                  {{"/c", "[default]\ncli_connect_timeout = 0\ncli_read_timeout = 0\n"}});
    EXPECT_EQ(options.web.connectTimeout, options.web.operationTimeout);
    EXPECT_EQ(options.web.stallTimeout, options.web.operationTimeout);
}

TEST(S3Environment, WhatIsNoNumberIsRefusedWithTheNameOfTheSetting) {
    for (std::string const wrong : {"0", "-1", "many", "5x", "1001", "99999999999999999999"}) {
        try {
            optionsOf({{"AWS_MAX_ATTEMPTS", wrong}});
            ADD_FAILURE() << wrong;
        } catch (cli::Refusal const& refusal) {
            EXPECT_EQ(std::string(refusal.what()), "AWS_MAX_ATTEMPTS is no number from 1 to 1000");
        }
    }
    EXPECT_EQ(optionsOf({{"AWS_MAX_ATTEMPTS", ""}}).web.attempts, s3::S3Options().web.attempts);
    for (std::string const key :
         {"s3 =\n max_concurrent_requests", "cli_read_timeout", "cli_connect_timeout"}) {
        EXPECT_THROW(
            optionsOf({{"AWS_CONFIG_FILE", "/c"}}, {{"/c", "[default]\n" + key + " = soon\n"}}),
            cli::Refusal)
            << key;
    }
}

TEST(S3Environment, NobodyAsksWhereThatIsWanted) {
    Texts variables{{"AWS_ACCESS_KEY_ID", "access"}, {"AWS_SECRET_ACCESS_KEY", "secret"}};
    for (std::string const yes : {"YES", "true", "1"}) {
        variables["AWS_NO_SIGN_REQUEST"] = yes;
        EXPECT_THAT(optionsOf(variables).credentials.accessKey, IsEmpty()) << yes;
    }
    variables["AWS_NO_SIGN_REQUEST"] = "NO";
    EXPECT_EQ(optionsOf(variables).credentials.accessKey, "access");
}

TEST(S3Environment, AnEmptyVariableIsNone) {
    EXPECT_EQ(optionsOf({{"AWS_REGION", ""}, {"AWS_DEFAULT_REGION", "us-west-2"}}).region,
              "us-west-2");
}

Texts const usualFiles{
    {"/home/ann/.aws/credentials", "[default]\naws_access_key_id = A1\naws_secret_access_key = S1\n"
                                   "[far]\naws_access_key_id = A2\naws_secret_access_key = S2\n"
                                   "aws_session_token = T2\n"},
    {"/home/ann/.aws/config",
     "[default]\nregion = eu-west-1\n"
     "[profile far]\nregion = us-west-2\nendpoint_url = http://far\nca_bundle = /far.pem\n"
     "s3 =\n  addressing_style = path\n"
     "[profile served]\nservices = here\nendpoint_url = http://all\n"
     "aws_access_key_id = A3\naws_secret_access_key = S3\n"
     "[services here]\ns3 =\n  endpoint_url = http://s3\n"}};

TEST(S3Environment, TheDefaultProfileIsReadFromTheHome) {
    s3::S3Options const options = optionsOf({{"HOME", "/home/ann"}}, usualFiles);
    EXPECT_EQ(options.credentials.accessKey, "A1");
    EXPECT_EQ(options.credentials.secretKey, "S1");
    EXPECT_EQ(options.region, "eu-west-1");
}

TEST(S3Environment, AProfileIsNamed) {
    s3::S3Options const options =
        optionsOf({{"HOME", "/home/ann"}, {"AWS_PROFILE", "far"}}, usualFiles);
    EXPECT_EQ(options.credentials.accessKey, "A2");
    EXPECT_EQ(options.credentials.sessionToken, "T2");
    EXPECT_EQ(options.region, "us-west-2");
    EXPECT_EQ(options.endpoint, "http://far");
    EXPECT_EQ(options.web.certificateFile, "/far.pem");
    EXPECT_EQ(options.addressing, s3::AddressingStyle::Path);
}

TEST(S3Environment, AProfileOfTheConfigurationAloneHasItsServices) {
    s3::S3Options const options =
        optionsOf({{"HOME", "/home/ann"}, {"AWS_PROFILE", "served"}}, usualFiles);
    EXPECT_EQ(options.credentials.accessKey, "A3");
    EXPECT_EQ(options.endpoint, "http://s3");
}

TEST(S3Environment, ConfiguredEndpointsCanBeIgnored) {
    EXPECT_THAT(optionsOf({{"HOME", "/home/ann"},
                           {"AWS_PROFILE", "far"},
                           {"AWS_IGNORE_CONFIGURED_ENDPOINT_URLS", "true"}},
                          usualFiles)
                    .endpoint,
                IsEmpty());
}

TEST(S3Environment, VariablesComeBeforeProfiles) {
    s3::S3Options const options = optionsOf({{"HOME", "/home/ann"},
                                             {"AWS_PROFILE", "far"},
                                             {"AWS_ACCESS_KEY_ID", "access"},
                                             {"AWS_SECRET_ACCESS_KEY", "secret"},
                                             {"AWS_REGION", "eu-north-1"}},
                                            usualFiles);
    EXPECT_EQ(options.credentials.accessKey, "access");
    EXPECT_THAT(options.credentials.sessionToken, IsEmpty()) << "another's token";
    EXPECT_EQ(options.region, "eu-north-1");
}

TEST(S3Environment, HalfOfACredentialIsNone) {
    EXPECT_EQ(optionsOf({{"HOME", "/home/ann"}, {"AWS_ACCESS_KEY_ID", "access"}}, usualFiles)
                  .credentials.accessKey,
              "A1");
}

TEST(S3Environment, AProfileThatIsNowhereIsRefused) {
    for (Texts const& variables :
         {Texts{{"HOME", "/home/ann"}, {"AWS_PROFILE", "missing"}},
          {{"HOME", "/home/ann"}, {"AWS_DEFAULT_PROFILE", "missing"}},
          {{"AWS_PROFILE", "missing"}}, // without a home there are no files
          {{"HOME", "/home/ann"},
           {"AWS_PROFILE", "missing"},
           {"AWS_ACCESS_KEY_ID", "access"},
           {"AWS_SECRET_ACCESS_KEY", "secret"}}}) {
        try {
            optionsOf(variables, usualFiles);
            ADD_FAILURE() << "taken";
        } catch (cli::Refusal const& refusal) {
            EXPECT_STREQ(refusal.what(),
                         "no file has the profile 'missing', which AWS_PROFILE names");
        }
    }
    EXPECT_EQ(optionsOf({{"AWS_PROFILE", ""}}).region, "us-east-1");
}

TEST(S3Environment, VariablesNameOtherFiles) {
    s3::S3Options const options =
        optionsOf({{"AWS_SHARED_CREDENTIALS_FILE", "/c"}, {"AWS_CONFIG_FILE", "/d"}},
                  {{"/c", "[default]\naws_access_key_id = A\naws_secret_access_key = S\n"},
                   {"/d", "[default]\nregion = eu-west-3\n"}});
    EXPECT_EQ(options.credentials.accessKey, "A");
    EXPECT_EQ(options.region, "eu-west-3");
}

TEST(S3Environment, ATildeInThemIsTheHome) {
    Texts const variables{{"AWS_SHARED_CREDENTIALS_FILE", "~/c"}, {"AWS_CONFIG_FILE", "~/d"}};
    Texts const files{{"/home/ann/c", "[a b]\naws_access_key_id = A\naws_secret_access_key = S\n"},
                      {"/home/ann/d", "[profile \"a b\"]\nREGION = eu-west-3\n"}};
    Texts ofAnn = variables;
    ofAnn["HOME"] = "/home/ann";
    ofAnn["AWS_PROFILE"] = "a b";
    s3::S3Options const options = optionsOf(ofAnn, files);
    EXPECT_EQ(options.credentials.accessKey, "A");
    EXPECT_EQ(options.region, "eu-west-3");
    EXPECT_THAT(optionsOf(variables, files).credentials.accessKey, IsEmpty()) << "nobody's home";
}

} // namespace
} // namespace cli_test
