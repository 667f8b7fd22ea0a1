#include "IMImagePickerController.h"

#include <QImage>
#include <QWidget>

#include "IMPlatform.h"

const QString kIMImagePickerControllerOriginalImage = QStringLiteral("UIImagePickerControllerOriginalImage");

IMImagePickerControllerDelegate::~IMImagePickerControllerDelegate() = default;
void IMImagePickerControllerDelegate::imagePickerControllerDidCancel(IMImagePickerController *) {}

IMImagePickerController::IMImagePickerController(QObject *parent)
    : QObject(parent)
{
}

IMImagePickerController::SourceType IMImagePickerController::sourceType() const { return m_source; }
void IMImagePickerController::setSourceType(SourceType type) { m_source = type; }
IMImagePickerControllerDelegate *IMImagePickerController::delegate() const { return m_delegate; }
void IMImagePickerController::setDelegate(IMImagePickerControllerDelegate *delegate) { m_delegate = delegate; }
bool IMImagePickerController::isPresented() const { return m_presented; }
void IMImagePickerController::dismissAnimated(bool) { m_presented = false; }

void IMImagePickerController::presentOver(QWidget *presenter)
{
    m_presented = true;
    const quint64 presentation = ++m_presentation;
    QPointer<IMImagePickerController> self(this);
    IMPlatform::instance()->pickImage(m_source, presenter, [self, presentation](const QImage &image) {
        // An answer to an older presentation (the picker was presented again meanwhile) is dropped.
        if (!self || presentation != self->m_presentation || !self->m_delegate)
            return;
        if (image.isNull()) {
            self->m_presented = false;
            self->m_delegate->imagePickerControllerDidCancel(self);
        } else {
            self->m_delegate->imagePickerController(self, {{kIMImagePickerControllerOriginalImage, image}});
        }
    });
}
