// Ends an expansion of catalogue.def: removes the caller's macro definitions
// so the next expansion starts from a clean slate. Include it right after
// "catalogue.def" (it may be included any number of times).
#undef PELAGON_ENUM_TABLE_BEGIN
#undef PELAGON_ENUM_ROW
#undef PELAGON_ENUM_TABLE_END
#undef PELAGON_GROUP_BEGIN
#undef PELAGON_GROUP_END
#undef PELAGON_PARAM_UINT
#undef PELAGON_PARAM_UINT64
#undef PELAGON_PARAM_DOUBLE
#undef PELAGON_PARAM_ENUM
#undef PELAGON_PARAM_STRING
#undef PELAGON_PARAM_UINTFIELD
#undef PELAGON_PARAM_DOUBLEFIELD
#undef PELAGON_RUNTIME_PARAM
