#pragma once

#include <QHash>
#include <QString>

#include <functional>

class QDialog;
class QWidget;

namespace ZVPlatform {

/// Windows that are described by a file.
class WindowLayout
{
public:
    /// How widgets of one's own are made, by the names of their classes.
    using Factories = QHash<QString, std::function<QWidget *(QWidget *parent)>>;

    /// Makes the dialog that a Qt Designer file describes; the caller owns it. Null when the file
    /// is missing or broken, or describes something else. Main thread of a QApplication only. As a
    /// guest's window it does not end the application by being the last one to close; the end of
    /// the application destroys it.
    ///
    /// The push buttons of a QDialogButtonBox come in the order that the user's desktop wants:
    /// those whose property "acceptsDialog" is true stand for yes, the others for no. The letters
    /// of the buttons' shortcuts are underlined where that is the custom. A property
    /// "relativeFontSize" makes a widget's font that much larger than the window's.
    static QDialog *load(const QString &path, const Factories &factories);
};

} // namespace ZVPlatform
