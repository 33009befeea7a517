#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>

#include <vector>

/// A program and its arguments, as the system takes them.
class ProgramWords
{
public:
    ProgramWords(const QString &program, const QStringList &arguments)
        : program_(QFile::encodeName(program))
    {
        words_.reserve(static_cast<size_t>(arguments.size()));
        pointers_.reserve(static_cast<size_t>(arguments.size()) + 2);
        pointers_.push_back(program_.data());
        for (const QString &argument : arguments)
            pointers_.push_back(words_.emplace_back(argument.toUtf8()).data());
        pointers_.push_back(nullptr);
    }
    ProgramWords(const ProgramWords &) = delete;
    ProgramWords &operator=(const ProgramWords &) = delete;

    const char *program() const { return pointers_.front(); }
    char *const *all() const { return pointers_.data(); }

private:
    QByteArray program_;
    std::vector<QByteArray> words_;
    std::vector<char *> pointers_;
};
