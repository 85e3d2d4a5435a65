#ifndef QESSERVICEDATALIB_BENCH_TEXTITEMS_H
#define QESSERVICEDATALIB_BENCH_TEXTITEMS_H

#include <string>

#include "Data/ElementContainer.h"
#include "Data/Service.h"

namespace Kivo::Bench {

// An element with one text that clients may write and its container indexes: the smallest
// element a write benchmark can flip.
class TextItem : public Data::Element {
public:
    explicit TextItem(Data::AbstractResource& resource)
        : Data::Element("Item", resource),
          text("text", this, Data::Base::PropertyValueString("a")) {
        text.registerAtOwner();
    }
    bool isPostAllowed(const Data::Base::PropertyKey&) const override { return true; }

    Data::Base::PropertyString text;
};

// The resource "Items" of `service`, holding TextItems, its type named `typeName`.
class TextItems : public Data::ElementContainer<TextItem> {
public:
    TextItems(Data::Service& service, const std::string& typeName)
        : Data::ElementContainer<TextItem>(service, typeName, "Items",
                                           Data::Base::PropertyValueUuid()) {
        init();
    }
    ~TextItems() override { clear(); }
};

}  // namespace Kivo::Bench

#endif  // QESSERVICEDATALIB_BENCH_TEXTITEMS_H
