#include "CliPrinter.h"

#include <unistd.h>

#include <cmath>

namespace ParloCli {

Printer::Printer(bool json, std::FILE *out, std::FILE *err)
    : m_json(json)
    , m_out(out)
    , m_err(err)
    , m_errIsTerminal(::isatty(::fileno(err)) == 1)
{
}

void Printer::write(std::FILE *to, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), to);
    std::fflush(to);
}

void Printer::result(const Line &line)
{
    endProgress();
    write(m_out, (m_json ? jsonLine(line.record) : line.text) + QLatin1Char('\n'));
}

void Printer::note(const QString &text)
{
    if (m_json)
        return;
    endProgress();
    write(m_err, text + QLatin1Char('\n'));
}

void Printer::error(int exitCode, const QString &text)
{
    endProgress();
    if (m_json)
        write(m_out,
            jsonLine({{QStringLiteral("type"), QStringLiteral("error")}, {QStringLiteral("exitCode"), exitCode},
                {QStringLiteral("message"), text}})
                + QLatin1Char('\n'));
    write(m_err, QStringLiteral("parlo-cli: %1\n").arg(text));
}

void Printer::progress(const QString &label, double fraction, qint64 totalBytes)
{
    if (m_json) {
        const int step = fraction < 0 ? -1 : int(std::floor(std::min(fraction, 1.0) * 10));
        if (step == m_lastStep)
            return;
        m_lastStep = step;
        write(m_out,
            jsonLine({{QStringLiteral("type"), QStringLiteral("progress")}, {QStringLiteral("label"), label},
                {QStringLiteral("fraction"), fraction}, {QStringLiteral("bytes"), totalBytes}})
                + QLatin1Char('\n'));
        return;
    }
    if (m_errIsTerminal) {
        write(m_err, QLatin1Char('\r') + progressBar(fraction, label, totalBytes));
        m_barShown = true;
        return;
    }
    const int step = fraction < 0 ? -1 : int(std::floor(std::min(fraction, 1.0) * 4));
    if (step == m_lastStep)
        return;
    m_lastStep = step;
    write(m_err, progressBar(fraction, label, totalBytes) + QLatin1Char('\n'));
}

void Printer::endProgress()
{
    if (m_barShown)
        write(m_err, QStringLiteral("\n"));
    m_barShown = false;
    m_lastStep = -1;
}

} // namespace ParloCli
