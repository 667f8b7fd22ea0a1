// The desktop share sheet and image picker behind IMPlatform's default hooks, installed when the
// screens' library loads.
#include <QApplication>
#include <QClipboard>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QImageReader>
#include <QLabel>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QStandardPaths>
#include <QUrl>
#include <QVBoxLayout>

#include "IMDispatch.h"
#include "IMPlatform.h"

namespace {
QWidget *parentFor(QObject *window)
{
    if (auto *w = qobject_cast<QWidget *>(window))
        return w->window();
    return QApplication::activeWindow();
}

// Shows what would be shared, with a button that copies it all to the clipboard.
void shareDialog(const QVariantList &items, QObject *window)
{
    auto *dialog = new QDialog(parentFor(window));
    dialog->setObjectName(QStringLiteral("IMShareDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(QObject::tr("分享"));
    auto *layout = new QVBoxLayout(dialog);
    QStringList texts;
    QImage image;
    for (const QVariant &item : items) {
        if (item.canConvert<QImage>() && item.userType() == QMetaType::QImage) {
            image = item.value<QImage>();
            auto *preview = new QLabel(dialog);
            preview->setPixmap(
                QPixmap::fromImage(image.scaled(240, 240, Qt::KeepAspectRatio, Qt::SmoothTransformation)));
            preview->setAlignment(Qt::AlignCenter);
            layout->addWidget(preview);
        } else {
            const QString text = item.userType() == QMetaType::QUrl ? item.toUrl().toString() : item.toString();
            texts << text;
            auto *label = new QLabel(text, dialog);
            label->setWordWrap(true);
            label->setTextInteractionFlags(Qt::TextSelectableByMouse);
            layout->addWidget(label);
        }
    }
    auto *buttons = new QDialogButtonBox(dialog);
    QPushButton *copy = buttons->addButton(QObject::tr("拷貝"), QDialogButtonBox::AcceptRole);
    copy->setObjectName(QStringLiteral("IMShareCopyButton"));
    buttons->addButton(QDialogButtonBox::Close);
    QObject::connect(copy, &QPushButton::clicked, dialog, [dialog, texts, image] {
        auto *mime = new QMimeData;
        if (!texts.isEmpty())
            mime->setText(texts.join(QLatin1Char('\n')));
        if (!image.isNull())
            mime->setImageData(image);
        QApplication::clipboard()->setMimeData(mime);
        dialog->accept();
    });
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    layout->addWidget(buttons);
    dialog->open();
}

constexpr int kMaxPickedSide = 4096;

// A file chooser on pictures; the camera source uses it too where there is no camera.
void pickDialog(int, QObject *window, const std::function<void(const QImage &)> &done)
{
    QStringList patterns;
    for (const QByteArray &format : QImageReader::supportedImageFormats())
        patterns << QStringLiteral("*.") + QString::fromLatin1(format);
    auto *dialog = new QFileDialog(parentFor(window), QObject::tr("相片圖庫"),
        QStandardPaths::writableLocation(QStandardPaths::PicturesLocation),
        QObject::tr("Pictures (%1)").arg(patterns.join(QLatin1Char(' '))));
    dialog->setObjectName(QStringLiteral("IMImagePicker"));
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    auto answered = std::make_shared<bool>(false);
    auto decoding = std::make_shared<bool>(false); // the dialog closes before the picture is decoded
    auto finish = [done, answered](const QImage &image) {
        if (*answered)
            return;
        *answered = true;
        if (done)
            done(image);
    };
    QObject::connect(dialog, &QFileDialog::fileSelected, dialog, [finish, decoding](const QString &path) {
        *decoding = true;
        // Decoded off the main thread (a photo of tens of megabytes takes a while), at most
        // kMaxPickedSide pixels on its longer side; a file that is no picture gives a null image.
        IMDispatchQueue::globalQueue()->async([finish, path] {
            QImageReader reader(path);
            reader.setAutoTransform(true);
            const QSize size = reader.size();
            if (size.isValid() && qMax(size.width(), size.height()) > kMaxPickedSide)
                reader.setScaledSize(size.scaled(kMaxPickedSide, kMaxPickedSide, Qt::KeepAspectRatio));
            const QImage image = reader.read();
            if (image.isNull())
                qWarning().noquote() << "not a picture:" << path << reader.errorString();
            IMDispatchMainAsync([finish, image] { finish(image); });
        });
    });
    QObject::connect(dialog, &QFileDialog::finished, dialog, [finish, decoding](int result) {
        if (result != QDialog::Accepted && !*decoding)
            finish(QImage());
    });
    QObject::connect(dialog, &QObject::destroyed, [finish, decoding] {
        if (!*decoding)
            finish(QImage());
    });
    dialog->open();
}

const bool g_installed = [] {
    IMPlatform::setDialogs({shareDialog, pickDialog});
    return true;
}();
} // namespace
