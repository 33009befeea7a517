#include "WindowLayout.h"

#include <QApplication>
#include <QBuffer>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFile>
#include <QPushButton>
#include <QUiLoader>
#include <QXmlStreamReader>

#include <memory>

namespace ZVPlatform {

namespace {

class Loader final : public QUiLoader
{
public:
    explicit Loader(const WindowLayout::Factories &factories) : factories_(factories)
    {
        setTranslationEnabled(false); // The texts come from elsewhere.
    }

    QWidget *createWidget(const QString &className, QWidget *parent, const QString &name) override
    {
        const auto factory = factories_.constFind(className);
        if (factory == factories_.constEnd())
            return QUiLoader::createWidget(className, parent, name);
        QWidget *widget = (*factory)(parent);
        widget->setObjectName(name);
        return widget;
    }

private:
    const WindowLayout::Factories &factories_;
};

// The loader would complain about broken files in the host's log.
bool describesDialog(const QByteArray &layout)
{
    QXmlStreamReader reader(layout);
    bool isDialog = false;
    if (reader.readNextStartElement() && reader.name() == QLatin1String("ui")) {
        while (reader.readNextStartElement()) {
            if (reader.name() == QLatin1String("widget"))
                isDialog =
                    reader.attributes().value(QLatin1String("class")) == QLatin1String("QDialog");
            reader.skipCurrentElement();
        }
    }
    return isDialog && !reader.hasError();
}

void arrangeButtons(QDialogButtonBox *box)
{
    const auto buttons = box->findChildren<QPushButton *>(QString(), Qt::FindDirectChildrenOnly);
    for (QPushButton *button : buttons) {
        const bool accepts = button->property("acceptsDialog").toBool();
        box->addButton(button,
                       accepts ? QDialogButtonBox::AcceptRole : QDialogButtonBox::RejectRole);
    }
}

} // namespace

QDialog *WindowLayout::load(const QString &path, const Factories &factories)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return nullptr;
    QByteArray layout = file.readAll();
    if (!describesDialog(layout))
        return nullptr;

    QBuffer buffer(&layout);
    buffer.open(QIODevice::ReadOnly);
    std::unique_ptr<QWidget> widget(Loader(factories).load(&buffer));
    auto *dialog = qobject_cast<QDialog *>(widget.get());
    if (!dialog)
        return nullptr;
    const auto boxes = dialog->findChildren<QDialogButtonBox *>();
    for (QDialogButtonBox *box : boxes)
        arrangeButtons(box);
    dialog->setAttribute(Qt::WA_QuitOnClose, false);
    QObject::connect(qApp, &QCoreApplication::aboutToQuit, dialog, &QObject::deleteLater);
    widget.release();
    return dialog;
}

} // namespace ZVPlatform
