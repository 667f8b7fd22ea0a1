// parlo-cli's command line: what it accepts, what it refuses, and with which message.
#include "CliOptions.h"
#include "QtPrinters.h"

#include <gtest/gtest.h>

using namespace ParloCli;

namespace {
ParseResult parse(const QString &line, const QMap<QString, QString> &env = {})
{
    return parseArguments(line.split(QLatin1Char(' '), Qt::SkipEmptyParts), env);
}
} // namespace

TEST(CliOptions, OptionsGoAnywhereTakeTheirValueEitherWayAndOverrideTheEnvironment)
{
    const ParseResult r = parse("--profile /tmp/a history Lunch --limit=5 --json --url http://h:9 --page 3");
    ASSERT_TRUE(r.ok()) << r.error.toStdString();
    EXPECT_EQ(r.options.command, "history");
    EXPECT_EQ(r.options.args, QStringList {"Lunch"});
    EXPECT_EQ(r.options.limit, 5);
    EXPECT_EQ(r.options.page, 3);
    EXPECT_TRUE(r.options.json);
    EXPECT_EQ(r.options.url, "http://h:9");
    EXPECT_EQ(r.options.profile, "/tmp/a");
    // The reference server's development keys are the defaults.
    EXPECT_EQ(r.options.apiKey, "parlo-dev-api-key");
    EXPECT_EQ(r.options.clientKey, "parlo-dev-client-key");
    EXPECT_EQ(r.options.protocol, 4);

    // "--" ends the options: a text may start with a dash.
    const ParseResult send = parseArguments({"send", "Lunch", "--", "-1", "is", "--json"});
    ASSERT_TRUE(send.ok()) << send.error.toStdString();
    EXPECT_EQ(send.options.args, (QStringList {"Lunch", "-1 is --json"}));
    EXPECT_FALSE(send.options.json);

    // The environment gives defaults that options override.
    const QMap<QString, QString> env {
        {"PARLO_URL", "http://env:1"}, {"PARLO_PROFILE", "/p"}, {"PARLO_CLIENT_ID", "bob"}};
    const ParseResult fromEnv = parse("rooms", env);
    ASSERT_TRUE(fromEnv.ok());
    EXPECT_EQ(fromEnv.options.url, "http://env:1");
    EXPECT_EQ(fromEnv.options.profile, "/p");
    EXPECT_EQ(fromEnv.options.clientID, "bob");
    EXPECT_EQ(parse("rooms --url http://cli:2", env).options.url, "http://cli:2");
    // A bad address from the environment is refused like a bad --url.
    EXPECT_FALSE(parse("rooms", {{"PARLO_URL", "ftp://x"}}).error.isEmpty());
}

TEST(CliOptions, BadArgumentsAreRefusedWithAMessageNamingTheProblem)
{
    struct Case {
        const char *line;
        const char *expected;
    };
    const Case cases[] = {
        {"frobnicate", "unknown command \"frobnicate\""},
        {"rooms --bogus", "unknown option --bogus"},
        {"rooms -x", "unknown option -x"},
        {"history", "usage: parlo-cli history ROOM"},
        {"join a b", "usage: parlo-cli join ROOM"},
        {"send Lunch", "usage: parlo-cli send ROOM TEXT"},
        {"rooms --limit", "--limit needs a value (N)"},
        {"rooms --limit ten", "--limit wants a whole number, not \"ten\""},
        {"rooms --limit 0", "--limit must be between 1 and 500"},
        {"rooms --offset -3", "--offset wants a whole number"},
        {"rooms --json=yes", "--json takes no value"},
        {"send Lunch hi --limit 3", "--limit does not apply to send"},
        {"history Lunch --page 2 --before 2024-05-04T09:30:00.000Z", "give --page or --before, not both"},
        {"history Lunch --before yesterday", "--before wants a time like"},
        {"rooms --url localhost:3000", "--url wants an http, https, ws or wss address"},
        {"rooms --protocol 5", "--protocol must be 4 or 3"},
        {"rooms --transport carrier-pigeon", "--transport must be auto, websocket or polling"},
        {"rooms --timeout 0", "--timeout must be between 1 and 3600"},
        {"signup", "signup needs --client-id ID"},
        {"help nothing", "unknown command \"nothing\""},
    };
    for (const Case &c : cases) {
        const ParseResult r = parse(QString::fromUtf8(c.line));
        EXPECT_TRUE(r.error.contains(QString::fromUtf8(c.expected))) << c.line << " gave: " << r.error.toStdString();
        EXPECT_FALSE(r.ok()) << c.line;
    }
    // An empty argument (a script's unset variable) is caught before anything is sent.
    EXPECT_TRUE(parseArguments({"send", "", "hi"}).error.contains("empty argument"));
}

TEST(CliOptions, HelpVersionAndTheInteractiveModeNeedNoCommandArguments)
{
    EXPECT_TRUE(parse("--help").help);
    for (const auto &[line, topic] : {std::pair {"help history", "history"}, {"send --help", "send"}}) {
        EXPECT_TRUE(parse(line).help) << line;
        EXPECT_EQ(parse(line).helpTopic, topic);
    }
    EXPECT_TRUE(parse("--version").version);
    const ParseResult r = parse("--client-id alice");
    ASSERT_TRUE(r.ok());
    EXPECT_TRUE(r.options.command.isEmpty());

    // The overview documents the exit codes; a command's help lists only its own options.
    EXPECT_TRUE(usageText().contains("3  the server could not be reached"));
    const QString history = usageText("history");
    EXPECT_TRUE(history.contains("--before TIME"));
    EXPECT_FALSE(history.contains("--member"));
}

TEST(CliOptions, InteractiveLinesKeepTheConnectionAndSplitWordsLikeAShell)
{
    Options base;
    base.url = "http://h:1";
    base.clientID = "alice";
    base.json = true;
    base.limit = 99; // a command's option does not leak from the program's line
    ParseResult r = parseShellLine(R"(send "Lunch room" 'it''s fine' \"ok\")", base);
    ASSERT_TRUE(r.ok()) << r.error.toStdString();
    EXPECT_EQ(r.options.args, (QStringList {"Lunch room", "its fine \"ok\""}));
    EXPECT_EQ(r.options.url, "http://h:1");
    EXPECT_EQ(r.options.clientID, "alice");
    EXPECT_TRUE(r.options.json);
    r = parseShellLine("history Lunch", base);
    EXPECT_EQ(r.options.limit, 20);

    for (const auto &[line, expected] : {std::pair {"rooms --url http://other:2", "set when parlo-cli starts"},
             {"send Lunch \"unfinished", "unterminated"}, {"shell", "already"}, {"   ", "empty"}})
        EXPECT_TRUE(parseShellLine(line, base).error.contains(expected)) << line;

    // The words themselves.
    QString error;
    EXPECT_EQ(splitWords("  a   b\tc ", &error), (QStringList {"a", "b", "c"}));
    EXPECT_EQ(splitWords(R"(a "" 'x y' z\ w)", &error), (QStringList {"a", "", "x y", "z w"}));
    EXPECT_EQ(splitWords(R"('back\slash')", &error), QStringList {R"(back\slash)"});
    EXPECT_TRUE(error.isEmpty());
    EXPECT_TRUE(splitWords("'open", &error).isEmpty());
    EXPECT_FALSE(error.isEmpty());
}
