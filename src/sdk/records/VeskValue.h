#pragma once

#include "sdk/records/VeskDiracRecords.h"
#include "sdk/records/VeskHash.h"

/// The value of a node: a hash with one entry, whose key names the type.
class VeskValue : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(bool, bool_, Bool)
    VESK_FIELD(int, i32_, I32)
    VESK_FIELD(double, double_, Double)
    VESK_FIELD(QString, string, String)
    VESK_FIELD(QVariantList, doubleList, DoubleList)
    VESK_FIELD(VeskDiracConfig, diracConfig, DiracConfig)
    VESK_FIELD(VeskDiracSlotsList, diracSlotsList, DiracSlotsList)

    static VeskValue ofBool(bool value) { return make(&VeskValue::setBool, value); }
    static VeskValue ofI32(int value) { return make(&VeskValue::setI32, value); }
    static VeskValue ofDouble(double value) { return make(&VeskValue::setDouble, value); }
    static VeskValue ofString(const QString& value) { return make(&VeskValue::setString, value); }
    static VeskValue of(const VeskDiracConfig& value) {
        return make(&VeskValue::setDiracConfig, value);
    }
    static VeskValue of(const VeskDiracSlotsList& value) {
        return make(&VeskValue::setDiracSlotsList, value);
    }

private:
    template <typename T>
    static VeskValue make(void (VeskValue::*setter)(const T&), const T& content) {
        VeskValue value;
        (value.*setter)(content);
        return value;
    }
};

Q_DECLARE_METATYPE(VeskValue)
