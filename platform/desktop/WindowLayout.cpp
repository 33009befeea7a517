#include "WindowLayout.h"

#include <QApplication>
#include <QBuffer>
#include <QCheckBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFile>
#include <QPainter>
#include <QPushButton>
#include <QStyleOptionButton>
#include <QUiLoader>
#include <QXmlStreamReader>

#include <memory>

namespace ZVPlatform {

namespace {

constexpr char relativeFontSize[] = "relativeFontSize";

// Has texts that are larger or smaller than the others follow the window's font.
class Dialog final : public QDialog
{
public:
    using QDialog::QDialog;

    void applyRelativeFontSizes()
    {
        const auto children = findChildren<QWidget *>();
        for (QWidget *child : children) {
            const qreal factor = child->property(relativeFontSize).toReal();
            if (factor <= 0)
                continue;
            QFont relative = font();
            if (relative.pointSizeF() > 0)
                relative.setPointSizeF(relative.pointSizeF() * factor);
            else
                relative.setPixelSize(qRound(relative.pixelSize() * factor));
            relative.setBold(child->font().bold());
            child->setFont(relative);
        }
    }

protected:
    void changeEvent(QEvent *event) override
    {
        QDialog::changeEvent(event);
        if (event->type() == QEvent::FontChange)
            applyRelativeFontSizes();
    }
};

// Underlines the letter of its shortcut where the desktop does so; the text itself stays free of
// marks. A dotted line says that it has the focus, since some styles draw the default button as if
// it had.
template <class Button>
class ButtonWithShortcut final : public Button
{
public:
    using Button::Button;

protected:
    void initStyleOption(QStyleOptionButton *option) const override
    {
        Button::initStyleOption(option);
        const QKeySequence shortcut = this->shortcut();
        if (shortcut.isEmpty())
            return;
        const QChar letter(static_cast<char16_t>(shortcut[0].key()));
        const qsizetype position = option->text.indexOf(letter, 0, Qt::CaseInsensitive);
        if (position >= 0)
            option->text.insert(position, QLatin1Char('&'));
    }

    void paintEvent(QPaintEvent *event) override
    {
        Button::paintEvent(event);
        if (!this->hasFocus())
            return;
        constexpr int inset = 3;
        QPainter painter(this);
        painter.setPen(QPen(this->palette().color(this->foregroundRole()), 1, Qt::DotLine));
        painter.drawRect(this->rect().adjusted(inset, inset, -inset - 1, -inset - 1));
    }
};

class Loader final : public QUiLoader
{
public:
    explicit Loader(const WindowLayout::Factories &factories) : factories_(factories)
    {
        setTranslationEnabled(false); // The texts come from elsewhere.
    }

    QWidget *createWidget(const QString &className, QWidget *parent, const QString &name) override
    {
        QWidget *widget = make(className, parent);
        if (!widget)
            return QUiLoader::createWidget(className, parent, name);
        widget->setObjectName(name);
        return widget;
    }

private:
    QWidget *make(const QString &className, QWidget *parent) const
    {
        if (className == QLatin1String("QDialog"))
            return new Dialog(parent);
        if (className == QLatin1String("QPushButton"))
            return new ButtonWithShortcut<QPushButton>(parent);
        if (className == QLatin1String("QCheckBox"))
            return new ButtonWithShortcut<QCheckBox>(parent);
        const auto factory = factories_.constFind(className);
        return factory == factories_.constEnd() ? nullptr : (*factory)(parent);
    }

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
    auto *dialog = dynamic_cast<Dialog *>(widget.get());
    if (!dialog)
        return nullptr;
    const auto boxes = dialog->findChildren<QDialogButtonBox *>();
    for (QDialogButtonBox *box : boxes)
        arrangeButtons(box);
    dialog->applyRelativeFontSizes();
    dialog->setAttribute(Qt::WA_QuitOnClose, false);
    QObject::connect(qApp, &QCoreApplication::aboutToQuit, dialog, &QObject::deleteLater);
    widget.release();
    return dialog;
}

} // namespace ZVPlatform
