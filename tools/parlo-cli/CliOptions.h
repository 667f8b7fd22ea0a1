#pragma once

// The command line of parlo-cli: its options, its commands and how both are read. Pure: no
// network, no files, so the rules can be tested on their own.

#include <QMap>
#include <QString>
#include <QStringList>

namespace ParloCli {

//! Exit codes scripts can rely on.
enum ExitCode {
    ExitOk = 0, //!< the command did what it was asked
    ExitFailure = 1, //!< anything else (a local file could not be written, ...)
    ExitUsage = 2, //!< bad arguments or input; nothing was sent
    ExitUnreachable = 3, //!< the server could not be reached or did not answer in time
    ExitRefused = 4 //!< the server answered with an error status
};

//! Everything one invocation (or one line of the interactive mode) asks for.
struct Options {
    // Connection and identity
    QString url = QStringLiteral("http://127.0.0.1:3000");
    QString apiKey = QStringLiteral("parlo-dev-api-key");
    QString clientKey = QStringLiteral("parlo-dev-client-key");
    QString clientID;
    QString identityToken; //!< sent with sign-up and the HTTP chat-in when set
    QString name;
    QString profile; //!< folder of settings, store and cache; empty: the user's standard places
    int protocol = 4; //!< Engine.IO revision: 4 (socket.io 3 and later servers) or 3 (socket.io 2)
    QString transport = QStringLiteral("auto"); //!< auto, websocket or polling
    int timeout = 10; //!< seconds allowed to connect and for an answer
    bool json = false;
    bool verbose = false;

    // The command and its own options
    QString command; //!< empty: the interactive mode
    QStringList args;
    int limit = 20;
    int page = 1;
    int offset = 0;
    QString before;
    QStringList members;
    bool isPublic = false;
    QString out;
    int forSeconds = 0; //!< watch: stop after this many seconds (0: until interrupted)
    int count = 0; //!< watch: stop after this many events (0: no limit)
    int size = 64; //!< make-picture: side in pixels
};

//! The outcome of reading a command line: options, or what to print instead.
struct ParseResult {
    Options options;
    QString error; //!< non-empty: bad arguments (exit ExitUsage)
    bool help = false; //!< --help or "help": print usageText(helpTopic)
    QString helpTopic; //!< a command name, or empty for the overview
    bool version = false; //!< --version
    bool ok() const { return error.isEmpty() && !help && !version; }
};

//! Reads `arguments` (without the program name). Options may come before or after the command;
//! "--name value" and "--name=value" both work; "--" ends the options. `environment` gives
//! defaults for PARLO_URL, PARLO_API_KEY, PARLO_CLIENT_KEY, PARLO_CLIENT_ID, PARLO_IDENTITY_TOKEN and PARLO_PROFILE.
ParseResult parseArguments(const QStringList &arguments, const QMap<QString, QString> &environment = {});

//! Reads one line of the interactive mode: a command with its own options, over `base` (the
//! options the program started with). Connection and identity options are refused there.
ParseResult parseShellLine(const QString &line, const Options &base);

//! Splits a line into words: blanks separate, '…' and "…" quote, a backslash escapes the next
//! character. `error` gets a message for an unterminated quote.
QStringList splitWords(const QString &line, QString *error);

//! True for commands that never talk to the server.
bool isLocalCommand(const QString &command);

//! The help text: the overview for an empty `topic`, else the command's own.
QString usageText(const QString &topic = QString());

//! The program's version text.
QString versionText();

} // namespace ParloCli
