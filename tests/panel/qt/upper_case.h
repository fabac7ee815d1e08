// SPDX-License-Identifier: MIT
// A language in which every text of the program stands in capitals: what is left of the others has not been translated.
#pragma once

#include <QCoreApplication>
#include <QRegularExpression>
#include <QTranslator>

namespace quorel {

class UpperCase : public QTranslator {
public:
    UpperCase() { QCoreApplication::installTranslator(this); }
    ~UpperCase() override { QCoreApplication::removeTranslator(this); }

    QString translate(const char*, const char* source, const char*, int) const override { return QString(source).toUpper(); }
    bool isEmpty() const override { return false; }
};

// Numbers with a unit are the same in each language.
inline QString untranslated(QString text)
{
    text.remove(QRegularExpression("[0-9]( dB|k)\\b"));
    return text == text.toUpper() ? QString() : text;
}

} // namespace quorel
