// The parameters of the catalogue as rows, for tests that walk all of them.
#pragma once

#include <vector>

#include "Catalogue.h"
#include "register_info.h"

enum class ParameterKind { UInt, UInt64, Double, String, UIntField, DoubleField, Runtime };

struct CatalogueRow {
    int id;
    const char* name;
    ParameterKind kind;
    bool writable;
};

inline std::vector<CatalogueRow> catalogueRows() {
    std::vector<CatalogueRow> rows;
    for (const pelagon::Param* p : pelagon::kCatalogue) {
        ParameterKind kind = ParameterKind::UInt;  // enumerations are unsigned too
        switch (p->kind) {
            case pelagon::Kind::Uint64: kind = ParameterKind::UInt64; break;
            case pelagon::Kind::Double: kind = ParameterKind::Double; break;
            case pelagon::Kind::String: kind = ParameterKind::String; break;
            case pelagon::Kind::UintField: kind = ParameterKind::UIntField; break;
            case pelagon::Kind::DoubleField: kind = ParameterKind::DoubleField; break;
            case pelagon::Kind::Runtime: kind = ParameterKind::Runtime; break;
            default: break;
        }
        rows.push_back({p->id, p->name, kind, (p->access & REG_ACCESS_WRITE) != 0});
    }
    return rows;
}
