#pragma once

#include <QLoggingCategory>
#include <QString>
#include <QVariant>

//! The logging category of the kit's console lines ("parlo").
Q_DECLARE_LOGGING_CATEGORY(lcParlo)

//! The "<%@:%d>" text for a source position: the file's last path component and the line.
QString IMLogLine(const char *file, int line);
//! Prints the console line "<%@:%d> %@" (file name, line, text) through Qt's message handler.
void IMConsoleLog(const char *file, int line, const QString &text);
//! The "%@" text of a value: strings as they are, dictionaries and lists as JSON, null as "(null)".
QString IMDescription(const QVariant &value);

//! The "<File.cpp:12>" text of the current source position.
#define IM_LOG_LINE() IMLogLine(__FILE__, __LINE__)
//! Prints "<File.cpp:12> text" always.
#define IM_LOG(text) IMConsoleLog(__FILE__, __LINE__, (text))
