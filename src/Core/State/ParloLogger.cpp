#include "ParloLogger.h"

#include "IMUserDefaults.h"

void ParloLogger::logDictionaryIfNeeded(const QVariantMap &record)
{
    if (m_log) {
        IMUserDefaults *settings = IMUserDefaults::standardUserDefaults();
        if (!settings->hasLog())
            settings->setLog(QVariantList());
        QVariantList log = settings->log();
        log.prepend(record);
        settings->setLog(log);
        settings->write();
    }
    if (m_printLog)
        qCInfo(lcParlo).noquote() << IMDescription(record);
}
