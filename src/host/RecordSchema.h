#pragma once

#include <QString>
#include <QVariantHash>

#include <string>
#include <vector>

namespace host {

struct RecordSchema;

/// How the content of a record's field is written.
enum class FieldKind {
    Bool,
    I32,
    U32,
    I64,
    Double,
    String,
    DoubleList,
    Record,
    RecordList,
    RecordListList,
};

enum class Presence { Required, Optional };

/// One field of a record.
struct RecordField {
    QString key;
    FieldKind kind;
    Presence presence{Presence::Required};
    const RecordSchema* record{nullptr};  ///< of the kinds made of records
    QString counts{};                     ///< key of the list of which this is the length
};

/// The fields of a record, by which a record that comes from outside is checked: workers trust what
/// the tree holds.
struct RecordSchema {
    std::vector<RecordField> fields;
    /// What is wrong with the fields together, each of which is right; empty: nothing. Null: they
    /// do not depend on each other.
    std::string (*fault)(const QVariantHash& record){nullptr};
};

/// The schema of the record that a value of `type` holds; null when it is not known.
const RecordSchema* recordSchema(const QString& type);

}  // namespace host
