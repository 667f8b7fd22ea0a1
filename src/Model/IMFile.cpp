#include "IMFile.h"

#include "IMJSONMapping_p.h"

#include <optional>

using namespace IMJSONMapping;

struct IMFile::Private {
    QString fileName;
    QString type;
    std::optional<quint64> size;
    std::optional<bool> isPublic;
    QString room;
};

IMFile::IMFile()
    : d(std::make_unique<Private>())
{
}
IMFile::~IMFile() = default;

IMFilePtr IMFile::fromDictionary(const QVariantMap &dictionary)
{
    auto file = std::make_shared<IMFile>();
    return file->mergeFromDictionary(dictionary) ? file : nullptr;
}

QList<IMFilePtr> IMFile::arrayOfModelsFromDictionaries(const QVariantList &array)
{
    return mapArray<IMFilePtr>(array, &IMFile::fromDictionary);
}

bool IMFile::mergeOwnFields(const QVariantMap &dict)
{
    Private staged = *d;
    const bool ok = read(dict, QStringLiteral("fileName"), &staged.fileName, toString)
        && read(dict, QStringLiteral("type"), &staged.type, toString)
        && read(dict, QStringLiteral("size"), &staged.size, toUInt64)
        && read(dict, QStringLiteral("isPublic"), &staged.isPublic, toBool)
        && read(dict, QStringLiteral("room"), &staged.room, toString);
    if (ok)
        *d = std::move(staged);
    return ok;
}

void IMFile::forEachOwnField(const FieldVisitor &field) const
{
    visitString(field, QStringLiteral("fileName"), d->fileName);
    visitOptional(field, QStringLiteral("isPublic"), d->isPublic);
    visitString(field, QStringLiteral("room"), d->room);
    visitOptional(field, QStringLiteral("size"), d->size);
    visitString(field, QStringLiteral("type"), d->type);
}
QString IMFile::fileName() const { return d->fileName; }
void IMFile::setFileName(const QString &fileName) { d->fileName = fileName; }
QString IMFile::type() const { return d->type; }
void IMFile::setType(const QString &type) { d->type = type; }
quint64 IMFile::size() const { return d->size.value_or(0); }
void IMFile::setSize(quint64 size) { d->size = size; }
bool IMFile::hasSize() const { return d->size.has_value(); }
bool IMFile::isPublic() const { return d->isPublic.value_or(false); }
void IMFile::setIsPublic(bool isPublic) { d->isPublic = isPublic; }
bool IMFile::hasIsPublic() const { return d->isPublic.has_value(); }
QString IMFile::room() const { return d->room; }
void IMFile::setRoom(const QString &room) { d->room = room; }
