// The element table, made of the rows in orvan_elements.def.

#include <type_traits>

#include <orvan_element_names.h>

namespace {

template <typename Field>
constexpr ValueTypes declared_type()
{
    if constexpr (std::is_same_v<Field, OnOff>) {
        return TYPE_BOOL;
    } else if constexpr (std::is_same_v<Field, int>) {
        return TYPE_INT32;
    } else if constexpr (std::is_same_v<Field, uint32_t>) {
        return TYPE_UINT32;
    } else if constexpr (std::is_same_v<Field, double>) {
        return TYPE_DOUBLE;
    } else if constexpr (std::is_same_v<Field, char[kOrvanTextSize]>) {
        return TYPE_STRING;
    }
}

constexpr int kTagsInOrder[] = {
#define ORVAN_ELEMENT(tag, section, field, offset, type, send) tag,
#include "orvan_elements.def"
#undef ORVAN_ELEMENT
};

constexpr bool rows_stand_at_their_tags()
{
    int row = 0;
    for (int tag : kTagsInOrder) {
        if (tag != row++) {
            return false;
        }
    }
    return row == static_cast<int>(kOrvanElementCount);
}

static_assert(rows_stand_at_their_tags());

#define ORVAN_ELEMENT(tag, section, field, offset, type, send)                                               \
    static_assert(offsetof(ORVAN_CONFIG, section.field) == (offset), #section "." #field);                   \
    static_assert(declared_type<decltype(ORVAN_CONFIG::section.field)>() == (type), #section "." #field);
#include "orvan_elements.def"
#undef ORVAN_ELEMENT

} // namespace

const OrvanElementData OrvanData::orvanMap[kOrvanElementCount + 1] = {
#define ORVAN_ELEMENT(tag, section, field, offset, type, send)                                               \
    {(offset), 1.0, (type), sizeof(ORVAN_CONFIG::section.field), (send)},
#include "orvan_elements.def"
#undef ORVAN_ELEMENT
    {UINT32_MAX, 0.0, TYPE_BOOL, 0, eSendNone},
};

const orvan_common::ElementName orvan_common::kElementNames[kOrvanElementCount] = {
#define ORVAN_ELEMENT(tag, section, field, offset, type, send) {#tag, #section, #field},
#include "orvan_elements.def"
#undef ORVAN_ELEMENT
};
