#pragma once

#include "IMObject.h"

class IMFile;
using IMFilePtr = std::shared_ptr<IMFile>;

//! An uploaded file as the server describes it. Every property is optional in mapping.
class IMFile : public IMObject {
public:
    //! A file with every property unset.
    IMFile();
    ~IMFile() override;

    //! A file mapped from `dictionary`, or null when a value's type does not fit its property.
    static IMFilePtr fromDictionary(const QVariantMap &dictionary);
    //! The dictionaries of `array` mapped; elements that fail to map or are not dictionaries are left out.
    static QList<IMFilePtr> arrayOfModelsFromDictionaries(const QVariantList &array);

    //! The stored file's name, used to fetch it ("fileName").
    QString fileName() const;
    //! Sets `fileName`.
    void setFileName(const QString &fileName);
    //! The type text given at upload ("type").
    QString type() const;
    //! Sets `type`.
    void setType(const QString &type);
    //! Size in bytes ("size"); 0 when unset.
    quint64 size() const;
    //! Sets `size`.
    void setSize(quint64 size);
    //! True when `size` is set.
    bool hasSize() const;
    //! Readable without room membership ("isPublic"); false when unset.
    bool isPublic() const;
    //! Sets `isPublic`.
    void setIsPublic(bool isPublic);
    //! True when `isPublic` is set.
    bool hasIsPublic() const;
    //! Identifier of the room the file belongs to ("room").
    QString room() const;
    //! Sets `room`.
    void setRoom(const QString &room);

protected:
    void forEachOwnField(const FieldVisitor &field) const override;
    bool mergeOwnFields(const QVariantMap &dictionary) override;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

Q_DECLARE_METATYPE(IMFilePtr)
