#pragma once

#include <QJsonObject>
#include <QProcess>
#include <QStringList>

/// The program zvupdate, running.
class Tool
{
public:
    /// What it ended with.
    struct End
    {
        int status = -1; ///< The exit status; -1 when it did not end in order or in time.
        QString output;
        QString errors;
    };

    /// Starts it, if that is given with an open file as its standard output.
    explicit Tool(const QStringList &arguments, int standardOutput = -1,
                  const QString &locale = {});
    ~Tool();

    /// Starts it and waits for its end.
    static End run(const QStringList &arguments);
    /// Runs it with wrong arguments, and sees that it says in one line what is wrong with them.
    static void expectRefusal(const QStringList &arguments, const QString &named);

    /// Waits until its standard output holds a text; false when it ends, or takes too long,
    /// without.
    bool waitForOutput(const QString &text);
    End end();
    void send(int signal) const;
    /// Whether it has a handler for the signal.
    bool catches(int signal) const;

private:
    void readOutput() { output_ += process_.readAllStandardOutput(); }

    QProcess process_;
    QByteArray output_;
};

/// The lines of a text, each of which must be a JSON object.
QList<QJsonObject> eventsIn(const QString &text);
