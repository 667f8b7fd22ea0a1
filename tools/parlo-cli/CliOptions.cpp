#include "CliOptions.h"

#include <ParloSDK/IMDate.h>

#include <QUrl>

namespace ParloCli {
namespace {

    enum class Kind { Flag, Int, Text, List };

    struct OptionSpec {
        const char *name;
        Kind kind;
        const char *commands; // null: a connection or identity option; else the commands it applies to
        const char *value;
        const char *help;
    };

    // Connection and identity options first, then the commands' own.
    const OptionSpec kOptions[] = {
        {"url", Kind::Text, nullptr, "URL", "server address (default http://127.0.0.1:3000, or $PARLO_URL)"},
        {"api-key", Kind::Text, nullptr, "KEY", "application key (default parlo-dev-api-key)"},
        {"client-key", Kind::Text, nullptr, "KEY", "client key (default parlo-dev-client-key)"},
        {"client-id", Kind::Text, nullptr, "ID", "who to be; signs up when the profile holds someone else"},
        {"identity-token", Kind::Text, nullptr, "JWT",
            "identity token from the host's backend (servers in strict mode)"},
        {"name", Kind::Text, nullptr, "NAME", "display name used when signing up"},
        {"profile", Kind::Text, nullptr, "DIR", "folder of this user's session, store and cache"},
        {"protocol", Kind::Int, nullptr, "4|3", "Engine.IO revision: 4 (socket.io 3+ servers) or 3 (socket.io 2)"},
        {"transport", Kind::Text, nullptr, "MODE", "auto (polling, then WebSocket), websocket or polling"},
        {"timeout", Kind::Int, nullptr, "SECONDS", "time allowed to connect and for each answer (default 10)"},
        {"json", Kind::Flag, nullptr, nullptr, "one JSON object a line instead of text"},
        {"verbose", Kind::Flag, nullptr, nullptr, "print the kit's log records on stderr"},
        {"limit", Kind::Int, "rooms history", "N", "how many rooms or messages (default 20)"},
        {"offset", Kind::Int, "rooms", "N", "rooms to skip"},
        {"page", Kind::Int, "history", "N", "page of history, 1 = the newest"},
        {"before", Kind::Text, "history", "TIME", "messages before this time (yyyy-MM-ddTHH:mm:ss.SSSZ)"},
        {"member", Kind::List, "create-room", "ID", "a client to put in the room (repeatable)"},
        {"public", Kind::Flag, "create-room", nullptr, "anyone with the room's link may join"},
        {"out", Kind::Text, "download", "PATH", "where to write the file (default: its name, here)"},
        {"for", Kind::Int, "watch", "SECONDS", "stop after this long"},
        {"count", Kind::Int, "watch", "N", "stop after this many events"},
        {"size", Kind::Int, "make-picture", "PIXELS", "side of the picture (default 64)"},
    };

    struct CommandSpec {
        const char *name;
        int minArgs;
        int maxArgs; // -1: any number
        const char *synopsis;
        const char *summary;
    };

    const CommandSpec kCommands[] = {
        {"signup", 0, 0, "signup --client-id ID [--name NAME]",
            "sign up (or in again) and keep the session in the profile"},
        {"rooms", 0, 0, "rooms [--limit N] [--offset N]", "list rooms with unread counts and the last message"},
        {"create-room", 1, 1, "create-room NAME [--member ID]... [--public]", "create a room"},
        {"join", 1, 1, "join ROOM", "join a public room"},
        {"archive", 1, 1, "archive ROOM", "archive a room (a new message brings it back)"},
        {"history", 1, 1, "history ROOM [--limit N] [--page N | --before TIME]", "show a page of messages"},
        {"send", 2, -1, "send ROOM TEXT...", "send a text message"},
        {"send-picture", 2, 2, "send-picture ROOM PATH", "upload a picture with a progress bar and send it"},
        {"send-file", 2, 2, "send-file ROOM PATH", "upload a file with a progress bar and send it"},
        {"download", 1, 1, "download FILE [--out PATH]", "download an uploaded file with a progress bar"},
        {"read", 1, 1, "read ROOM", "mark a room read (its members get a read receipt)"},
        {"watch", 0, 0, "watch [--for SECONDS] [--count N]", "print pushed events as they arrive"},
        {"link", 1, 1, "link ROOM", "print the link that joins a room"},
        {"open-link", 1, 1, "open-link URL", "open a join link"},
        {"shell", 0, 0, "shell", "interactive mode (also when no command is given)"},
        {"make-picture", 1, 1, "make-picture PATH [--size PIXELS]", "write a small PNG picture (no server)"},
        {"help", 0, 1, "help [COMMAND]", "this text, or a command's"},
    };

    const OptionSpec *findOption(const QString &name)
    {
        for (const OptionSpec &entry : kOptions)
            if (name == QLatin1String(entry.name))
                return &entry;
        return nullptr;
    }

    const CommandSpec *findCommand(const QString &name)
    {
        for (const CommandSpec &entry : kCommands)
            if (name == QLatin1String(entry.name))
                return &entry;
        return nullptr;
    }

    bool appliesTo(const OptionSpec &entry, const QString &command)
    {
        if (!entry.commands)
            return true;
        return QString::fromLatin1(entry.commands).split(QLatin1Char(' ')).contains(command);
    }

    struct Pending {
        const OptionSpec *entry;
        QString value;
    };

    // Applies one option's value; returns an error text or an empty one.
    QString apply(Options &o, const OptionSpec &entry, const QString &value)
    {
        const QString name = QString::fromLatin1(entry.name);
        int number = 0;
        if (entry.kind == Kind::Int) {
            bool ok = false;
            number = value.toInt(&ok);
            if (!ok || number < 0)
                return QStringLiteral("--%1 wants a whole number, not \"%2\"").arg(name, value);
        }
        auto range = [&](int low, int high) -> QString {
            if (number < low || number > high)
                return QStringLiteral("--%1 must be between %2 and %3").arg(name).arg(low).arg(high);
            return QString();
        };
        if (name == QLatin1String("url")) {
            const QUrl url(value, QUrl::StrictMode);
            const QStringList schemes {
                QStringLiteral("http"), QStringLiteral("https"), QStringLiteral("ws"), QStringLiteral("wss")};
            if (!url.isValid() || url.host().isEmpty() || !schemes.contains(url.scheme()))
                return QStringLiteral("--url wants an http, https, ws or wss address, not \"%1\"").arg(value);
            o.url = value;
        } else if (name == QLatin1String("api-key")) {
            o.apiKey = value;
        } else if (name == QLatin1String("client-key")) {
            o.clientKey = value;
        } else if (name == QLatin1String("identity-token")) {
            o.identityToken = value;
        } else if (name == QLatin1String("client-id")) {
            if (value.trimmed().isEmpty() || value.size() > 128)
                return QStringLiteral("--client-id wants 1 to 128 characters");
            o.clientID = value;
        } else if (name == QLatin1String("name")) {
            o.name = value;
        } else if (name == QLatin1String("profile")) {
            if (value.isEmpty())
                return QStringLiteral("--profile wants a folder");
            o.profile = value;
        } else if (name == QLatin1String("protocol")) {
            if (number != 3 && number != 4)
                return QStringLiteral("--protocol must be 4 or 3");
            o.protocol = number;
        } else if (name == QLatin1String("transport")) {
            if (value != QLatin1String("auto") && value != QLatin1String("websocket")
                && value != QLatin1String("polling"))
                return QStringLiteral("--transport must be auto, websocket or polling");
            o.transport = value;
        } else if (name == QLatin1String("timeout")) {
            if (QString e = range(1, 3600); !e.isEmpty())
                return e;
            o.timeout = number;
        } else if (name == QLatin1String("json")) {
            o.json = true;
        } else if (name == QLatin1String("verbose")) {
            o.verbose = true;
        } else if (name == QLatin1String("limit")) {
            if (QString e = range(1, 500); !e.isEmpty())
                return e;
            o.limit = number;
        } else if (name == QLatin1String("offset")) {
            o.offset = number;
        } else if (name == QLatin1String("page")) {
            if (QString e = range(1, 1000000); !e.isEmpty())
                return e;
            o.page = number;
        } else if (name == QLatin1String("before")) {
            if (!IMDate::toDate(value).isValid())
                return QStringLiteral("--before wants a time like 2024-05-04T09:30:00.000Z, not \"%1\"").arg(value);
            o.before = value;
        } else if (name == QLatin1String("member")) {
            if (value.trimmed().isEmpty())
                return QStringLiteral("--member wants a client id");
            o.members.append(value);
        } else if (name == QLatin1String("public")) {
            o.isPublic = true;
        } else if (name == QLatin1String("out")) {
            if (value.isEmpty())
                return QStringLiteral("--out wants a path");
            o.out = value;
        } else if (name == QLatin1String("for")) {
            o.forSeconds = number;
        } else if (name == QLatin1String("count")) {
            o.count = number;
        } else if (name == QLatin1String("size")) {
            if (QString e = range(1, 4096); !e.isEmpty())
                return e;
            o.size = number;
        }
        return QString();
    }

    // The common reader of program arguments and interactive lines.
    ParseResult parse(const QStringList &arguments, Options base, bool allowConnectionOptions)
    {
        ParseResult result;
        QList<Pending> pending;
        QStringList words;
        bool optionsEnded = false;
        for (qsizetype i = 0; i < arguments.size(); ++i) {
            const QString &arg = arguments[i];
            if (optionsEnded || !arg.startsWith(QLatin1String("-")) || arg == QLatin1String("-")) {
                words.append(arg);
                continue;
            }
            if (arg == QLatin1String("--")) {
                optionsEnded = true;
                continue;
            }
            if (arg == QLatin1String("-h") || arg == QLatin1String("--help")) {
                result.help = true;
                continue;
            }
            if (arg == QLatin1String("--version")) {
                result.version = true;
                continue;
            }
            if (!arg.startsWith(QLatin1String("--"))) {
                result.error = QStringLiteral("unknown option %1").arg(arg);
                return result;
            }
            QString name = arg.mid(2);
            QString value;
            bool hasValue = false;
            if (const qsizetype eq = name.indexOf(QLatin1Char('=')); eq >= 0) {
                value = name.mid(eq + 1);
                name = name.left(eq);
                hasValue = true;
            }
            const OptionSpec *entry = findOption(name);
            if (!entry) {
                result.error = QStringLiteral("unknown option --%1").arg(name);
                return result;
            }
            if (!entry->commands && !allowConnectionOptions) {
                result.error = QStringLiteral("--%1 is set when parlo-cli starts").arg(name);
                return result;
            }
            if (entry->kind == Kind::Flag) {
                if (hasValue) {
                    result.error = QStringLiteral("--%1 takes no value").arg(name);
                    return result;
                }
            } else if (!hasValue) {
                if (i + 1 >= arguments.size()) {
                    result.error
                        = QStringLiteral("--%1 needs a value (%2)").arg(name, QString::fromLatin1(entry->value));
                    return result;
                }
                value = arguments[++i];
            }
            pending.append({entry, value});
        }

        Options &o = result.options;
        o = std::move(base);
        if (!words.isEmpty())
            o.command = words.takeFirst();
        o.args = words;

        if (result.help || o.command == QLatin1String("help")) {
            result.help = true;
            result.helpTopic = o.command == QLatin1String("help") ? o.args.value(0) : o.command;
            if (!result.helpTopic.isEmpty() && !findCommand(result.helpTopic))
                result.error = QStringLiteral("unknown command \"%1\"").arg(result.helpTopic);
            return result;
        }
        if (result.version)
            return result;

        const QString command = o.command.isEmpty() ? QStringLiteral("shell") : o.command;
        const CommandSpec *cmd = findCommand(command);
        if (!cmd) {
            result.error = QStringLiteral("unknown command \"%1\" (see parlo-cli help)").arg(command);
            return result;
        }
        for (const Pending &p : pending) {
            if (!appliesTo(*p.entry, command)) {
                result.error
                    = QStringLiteral("--%1 does not apply to %2").arg(QString::fromLatin1(p.entry->name), command);
                return result;
            }
            if (QString e = apply(o, *p.entry, p.value); !e.isEmpty()) {
                result.error = e;
                return result;
            }
        }
        if (o.args.size() < cmd->minArgs || (cmd->maxArgs >= 0 && o.args.size() > cmd->maxArgs)) {
            result.error = QStringLiteral("usage: parlo-cli %1").arg(QString::fromLatin1(cmd->synopsis));
            return result;
        }
        for (const QString &arg : o.args) {
            if (arg.trimmed().isEmpty()) {
                result.error = QStringLiteral("%1: empty argument (usage: parlo-cli %2)")
                                   .arg(command, QString::fromLatin1(cmd->synopsis));
                return result;
            }
        }
        if (command == QLatin1String("history") && o.page != 1 && !o.before.isEmpty()) {
            result.error = QStringLiteral("history: give --page or --before, not both");
            return result;
        }
        if (command == QLatin1String("signup") && o.clientID.isEmpty()) {
            result.error = QStringLiteral("signup needs --client-id ID");
            return result;
        }
        if (command == QLatin1String("send"))
            o.args = QStringList {o.args.first(), o.args.mid(1).join(QLatin1Char(' '))};
        return result;
    }

} // namespace

ParseResult parseArguments(const QStringList &arguments, const QMap<QString, QString> &environment)
{
    Options base;
    auto fromEnv = [&](const char *key, QString &field) {
        const QString value = environment.value(QString::fromLatin1(key));
        if (!value.isEmpty())
            field = value;
    };
    fromEnv("PARLO_API_KEY", base.apiKey);
    fromEnv("PARLO_CLIENT_KEY", base.clientKey);
    fromEnv("PARLO_CLIENT_ID", base.clientID);
    fromEnv("PARLO_IDENTITY_TOKEN", base.identityToken);
    fromEnv("PARLO_PROFILE", base.profile);
    // The address is checked like --url, so it goes through the same reader.
    QStringList args = arguments;
    const QString url = environment.value(QStringLiteral("PARLO_URL"));
    if (!url.isEmpty())
        args.prepend(QStringLiteral("--url=") + url);
    return parse(args, base, true);
}

ParseResult parseShellLine(const QString &line, const Options &base)
{
    ParseResult result;
    QString error;
    const QStringList words = splitWords(line, &error);
    if (!error.isEmpty()) {
        result.error = error;
        return result;
    }
    // A line starts from the program's connection options and the defaults of the rest.
    Options start;
    for (auto field : {&Options::url, &Options::apiKey, &Options::clientKey, &Options::clientID, &Options::name,
             &Options::identityToken, &Options::profile, &Options::transport})
        start.*field = base.*field;
    start.protocol = base.protocol;
    start.timeout = base.timeout;
    start.json = base.json;
    start.verbose = base.verbose;
    result = parse(words, start, false);
    if (result.ok() && result.options.command.isEmpty())
        result.error = QStringLiteral("empty line");
    else if (result.ok() && result.options.command == QLatin1String("shell"))
        result.error = QStringLiteral("already in the interactive mode");
    return result;
}

QStringList splitWords(const QString &line, QString *error)
{
    QStringList words;
    QString word;
    bool inWord = false;
    QChar quote;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line[i];
        if (c == QLatin1Char('\\') && quote != QLatin1Char('\'') && i + 1 < line.size()) {
            word += line[++i];
            inWord = true;
        } else if (!quote.isNull()) {
            if (c == quote)
                quote = QChar();
            else
                word += c;
        } else if (c == QLatin1Char('"') || c == QLatin1Char('\'')) {
            quote = c;
            inWord = true;
        } else if (c.isSpace()) {
            if (inWord)
                words.append(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (!quote.isNull()) {
        if (error)
            *error = QStringLiteral("unterminated %1 quote").arg(quote);
        return {};
    }
    if (inWord)
        words.append(word);
    return words;
}

bool isLocalCommand(const QString &command)
{
    return command == QLatin1String("make-picture") || command == QLatin1String("help");
}

QString usageText(const QString &topic)
{
    auto optionLine = [](const OptionSpec &entry) {
        QString left = QStringLiteral("  --%1").arg(QString::fromLatin1(entry.name));
        if (entry.value)
            left += QLatin1Char(' ') + QString::fromLatin1(entry.value);
        return left.leftJustified(26) + QLatin1Char(' ') + QString::fromLatin1(entry.help) + QLatin1Char('\n');
    };
    if (const CommandSpec *cmd = topic.isEmpty() ? nullptr : findCommand(topic)) {
        QString text = QStringLiteral("usage: parlo-cli [options] %1\n%2\n")
                           .arg(QString::fromLatin1(cmd->synopsis), QString::fromLatin1(cmd->summary));
        QString own;
        for (const OptionSpec &entry : kOptions)
            if (entry.commands && appliesTo(entry, topic))
                own += optionLine(entry);
        if (!own.isEmpty())
            text += QStringLiteral("\noptions of %1:\n").arg(topic) + own;
        return text;
    }
    QString text = QStringLiteral(
        "usage: parlo-cli [options] COMMAND [ARGUMENTS]\n"
        "A terminal client of a Parlo chat server. Without a command it reads commands from its input.\n"
        "A ROOM is a room's id or its name.\n\ncommands:\n");
    for (const CommandSpec &cmd : kCommands)
        text += QStringLiteral("  ") + QString::fromLatin1(cmd.synopsis).leftJustified(52) + QLatin1Char(' ')
            + QString::fromLatin1(cmd.summary) + QLatin1Char('\n');
    text += QStringLiteral("\noptions:\n");
    for (const OptionSpec &entry : kOptions)
        if (!entry.commands)
            text += optionLine(entry);
    text += QStringLiteral("  --help                     this text (after a command: the command's)\n"
                           "  --version                  the version\n"
                           "\nexit codes:\n"
                           "  0  done\n"
                           "  1  another failure (a local file could not be read or written, ...)\n"
                           "  2  bad arguments or input; nothing was sent\n"
                           "  3  the server could not be reached or did not answer in time\n"
                           "  4  the server refused the request (its status is printed)\n");
    return text;
}

QString versionText() { return QStringLiteral("parlo-cli " PARLO_CLI_VERSION); }

} // namespace ParloCli
