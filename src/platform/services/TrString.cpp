#include "sdk/services/TrString.h"

#include <QRegularExpression>

#include <algorithm>
#include <iterator>

namespace {

QString withoutTemplateArguments(const QString& signature) {
    QString result;
    int depth = 0;
    for (const QChar character : signature) {
        if (character == QLatin1Char('<'))
            ++depth;
        if (depth == 0)
            result += character;
        if (character == QLatin1Char('>'))
            --depth;
    }
    return result;
}

}  // namespace

QString trExtractContext(const char* signature) {
    static const QRegularExpression endOfResultType(QStringLiteral("[ *&]"));
    const QString plain = withoutTemplateArguments(QString::fromUtf8(signature));
    const QString declaration = plain.left(plain.indexOf(QLatin1Char('(')));
    const QString name = declaration.mid(declaration.lastIndexOf(endOfResultType) + 1);
    const int scopeEnd = name.lastIndexOf(QLatin1String("::"));
    return name.left(scopeEnd);
}

TrString::TrString(const QString& context, const QString& source, const QList<TrArg>& arguments) {
    QStringList texts;
    std::transform(arguments.begin(), arguments.end(), std::back_inserter(texts),
                   [](const TrArg& argument) { return argument.text(); });
    setContext(context);
    setSource(source);
    setArguments(texts);
}

QString TrString::text() const {
    // In one pass, so that a "%2" inside an argument stays what it is.
    static const QRegularExpression place(QStringLiteral("%([1-9][0-9]?)"));
    const QString pattern = source();
    const QStringList values = arguments();
    QString result;
    int done = 0;
    for (auto match = place.globalMatch(pattern); match.hasNext();) {
        const QRegularExpressionMatch found = match.next();
        const int index = found.capturedRef(1).toInt() - 1;
        result += pattern.midRef(done, found.capturedStart() - done);
        result += index < values.size() ? values[index] : found.captured();
        done = found.capturedEnd();
    }
    return result + pattern.midRef(done);
}
