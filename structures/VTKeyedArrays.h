// A map from key to list: each key gathers the objects added under it, in
// order, duplicates kept. Used wherever a configuration clause may repeat
// (filters, rights, validation rules) and by the matrix for the fields of a
// transaction.
#pragma once

#include "foundation/NSArray.h"
#include "foundation/NSDictionary.h"

class VTKeyedArrays : public NSObject {
    NS_DECLARE_CLASS(VTKeyedArrays, NSObject)

public:
    VTKeyedArrays* init() override;
    // Appends; the first use of a key creates its array.
    void addObject_forKey_(NSObject* object, NSObject* key);
    // The live array of the key, or a new autoreleased empty array that is
    // not entered, so that readers never test for nil.
    NSMutableArray* objectsForKey_(NSObject* key);
    bool containsKey_(NSObject* key);
    // Autoreleased, in the dictionary's order.
    NSMutableArray* allKeys();
    void removeAllObjects();
    // The description of the dictionary.
    NSString* description() override;

    NSMutableDictionary* dict() { return _dict; }

protected:
    ~VTKeyedArrays() override = default;

private:
    Ref<NSMutableDictionary> _dict;
};
