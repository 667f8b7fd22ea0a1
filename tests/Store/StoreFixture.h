#pragma once

// Each store test starts from an empty store in a folder of its own.
#include "IMDB.h"
#include "IMDate.h"
#include "IMPlatform.h"
#include "IMUserDefaults.h"
#include "TestUtil.h"

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QStringList>
#include <gtest/gtest.h>
#include <sqlite3.h>

//! Collects the kit's console lines while it lives.
class LogCapture {
public:
    LogCapture()
    {
        s_current = this;
        m_previous = qInstallMessageHandler(&LogCapture::handle);
    }
    ~LogCapture()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }
    QStringList lines() const
    {
        QMutexLocker lock(&m_mutex);
        return m_lines;
    }
    int count(const QString &text) const { return int(lines().filter(text).size()); }

private:
    static void handle(QtMsgType, const QMessageLogContext &, const QString &message)
    {
        if (LogCapture *self = s_current) {
            QMutexLocker lock(&self->m_mutex);
            self->m_lines << message;
        }
    }
    static inline LogCapture *s_current = nullptr;
    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_mutex;
    QStringList m_lines;
};

class StoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        folder = makeTempDir();
        IMPlatform::instance()->setDocumentsPath(folder);
        IMUserDefaults::standardUserDefaults()->setSettingsFile(QDir(folder).filePath("settings.ini"));
        db = IMDB::sharedInstance();
        // A reset opens a new store in the folder this test owns.
        db->resetDatabase();
        ASSERT_TRUE(waitUntil([this] { return db->isOpen(); }));
        ASSERT_EQ(db->databasePath(), QDir(folder).filePath("parlo_db"));
    }

    static IMRoomPtr room(const QString &id, const QString &lastMessageTime, const QString &name = QString())
    {
        auto room = std::make_shared<IMRoom>();
        room->setObjectID(id);
        if (!lastMessageTime.isNull())
            room->setLastMessageTime(lastMessageTime);
        if (!name.isNull())
            room->setName(name);
        return room;
    }

    static IMMessagePtr message(const QString &id, const IMRoomPtr &room, const QString &createdAt)
    {
        auto message = std::make_shared<IMMessage>();
        message->setObjectID(id);
        message->setRoom(room);
        message->setCreatedAt(createdAt);
        message->setMessage(QStringLiteral("text of ") + id);
        return message;
    }

    //! "2020-01-01T00:00:<n>.000Z"-like timestamps, one second apart.
    static QString second(int n)
    {
        return QDateTime(QDate(2020, 1, 1), QTime(0, 0), Qt::UTC).addSecs(n).toString("yyyy-MM-ddTHH:mm:ss.zzzZ");
    }

    template <typename Ptr> static QStringList ids(const QList<Ptr> &records)
    {
        QStringList out;
        for (const auto &record : records)
            out << record->objectID();
        return out;
    }

    //! Column `column` of every row `sql` gives on a connection of its own to the file at `path`.
    static QStringList sqlColumn(const QString &path, const char *sql, int column = 0)
    {
        sqlite3 *raw = nullptr;
        sqlite3_stmt *stmt = nullptr;
        QStringList out;
        EXPECT_EQ(sqlite3_open_v2(QFile::encodeName(path), &raw, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
        EXPECT_EQ(sqlite3_prepare_v2(raw, sql, -1, &stmt, nullptr), SQLITE_OK) << sql;
        while (sqlite3_step(stmt) == SQLITE_ROW)
            out << QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(stmt, column)));
        sqlite3_finalize(stmt);
        sqlite3_close(raw);
        return out;
    }

    QString folder;
    IMDB *db = nullptr;
};
