#pragma once

#include <QObject>
#include <QPointer>
#include <QVariantMap>

class IMImagePickerController;
class QWidget;

//! The key of the picked picture (a QImage) in the picker's result.
extern const QString kIMImagePickerControllerOriginalImage;

//! Hears the picker's result.
class IMImagePickerControllerDelegate {
public:
    virtual ~IMImagePickerControllerDelegate();
    //! A picture was picked; `info` holds it under kIMImagePickerControllerOriginalImage.
    virtual void imagePickerController(IMImagePickerController *picker, const QVariantMap &info) = 0;
    //! Nothing was picked (cancelled, or the file was no picture). Default: nothing.
    virtual void imagePickerControllerDidCancel(IMImagePickerController *picker);
};

//! Picks one picture through the platform's picker (IMPlatform::pickImage), from the camera or the
//! photo library, and hands it to its delegate on the main thread.
class IMImagePickerController : public QObject {
    Q_OBJECT
public:
    //! Where the picture comes from (the platform's source numbers).
    enum SourceType { SourceTypeCamera = 0, SourceTypePhotoLibrary = 1 };
    Q_ENUM(SourceType)

    //! A picker on the photo library, owned by `parent`.
    explicit IMImagePickerController(QObject *parent = nullptr);
    //! The source.
    SourceType sourceType() const;
    //! Sets the source.
    void setSourceType(SourceType type);
    //! The delegate (not owned).
    IMImagePickerControllerDelegate *delegate() const;
    //! Sets the delegate.
    void setDelegate(IMImagePickerControllerDelegate *delegate);
    //! Opens the platform's picker over `presenter`'s window; the delegate hears once per presentation.
    void presentOver(QWidget *presenter);
    //! Whether a presentation waits for its answer or has not been dismissed.
    bool isPresented() const;
    //! Ends the presentation (the platform's picker is gone by the time the delegate hears).
    void dismissAnimated(bool animated);

private:
    SourceType m_source = SourceTypePhotoLibrary;
    IMImagePickerControllerDelegate *m_delegate = nullptr;
    bool m_presented = false;
    quint64 m_presentation = 0;
};
