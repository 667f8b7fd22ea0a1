#pragma once

// Where parlo-cli's lines go: results on standard output (text or JSON lines), notes and the
// progress bar on standard error, errors on both in JSON mode (stdout as a record).

#include "CliFormat.h"

#include <cstdio>

namespace ParloCli {

class Printer {
public:
    Printer(bool json, std::FILE *out = stdout, std::FILE *err = stderr);

    bool json() const { return m_json; }
    //! A result: its text, or its record in JSON mode.
    void result(const Line &line);
    //! A remark for people (stderr); nothing in JSON mode.
    void note(const QString &text);
    //! A failure with the exit code it leads to.
    void error(int exitCode, const QString &text);
    //! The progress of a transfer: redrawn in place on a terminal, else a line every quarter
    //! (every tenth in JSON mode, as "progress" records).
    void progress(const QString &label, double fraction, qint64 totalBytes);
    //! Ends the progress display (a new line after an in-place bar).
    void endProgress();

private:
    void write(std::FILE *to, const QString &text);

    bool m_json;
    std::FILE *m_out;
    std::FILE *m_err;
    bool m_errIsTerminal;
    bool m_barShown = false;
    int m_lastStep = -1;
};

} // namespace ParloCli
