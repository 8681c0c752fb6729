// What a Save may write and how: one set of rules for the sheet's Save
// button and for vantor-admin's `record set`. The two read values from
// different places (the form's controls, a JSON object) and both hand them
// here as a dictionary of field name to value, the "form values".
//
// A field that the form values leave out keeps what the record holds. The
// Save button leaves out a field whose control can't show the stored value
// (an enum value outside the list, a reference to a record that is gone,
// hidden by the target's filters or sharing its display text with
// another) as long as the user has not touched that control, so a Save
// never changes what the user didn't touch. For a new record a field left
// out takes what the empty form shows: the sheet's default of a text or
// enum field, the present moment for a date, else the empty string. A
// hidden field has no control: it is written only when given.
#pragma once

#include <cstdint>
#include <string>

#include "foundation/NSObject.h"

class NSArray;
class NSDictionary;
class NSObject;
class NSString;
class VTSheet;

// The sheet's field descriptor under the name, or nil.
NSArray* VTSaveDescriptorOf(VTSheet* sheet, NSString* field);
// The field's type word (string, enum, reference, ...).
NSString* VTSaveTypeOf(NSArray* descriptor);

// The value a Save writes for the field: the form value, else the stored
// value, else for a new record (nil `record`) what the empty form shows.
// nil for a hidden field that isn't given: nothing is written.
NSObject* VTSaveValueOf(VTSheet* sheet, NSArray* descriptor, NSDictionary* values,
                        NSDictionary* record);

// The validation of a Save: the first field, in field order, whose
// `notempty` rule the written value breaks, or nil. Text must hold more
// than blanks; an enum and a reference must name something; dates and
// multireferences always pass; a hidden text field never does unless it
// is given. Other rules (`unique`) have no effect.
NSString* VTSaveFirstEmptyField(VTSheet* sheet, NSDictionary* values, NSDictionary* record);
// The alert text for that field: `format` (the localized
// validation_notempty, one %s) with the field's label.
NSString* VTSaveEmptyFieldMessage(VTSheet* sheet, NSString* field, NSString* format);

// Why the field's control couldn't hold the value, or "" when it could: a
// date for a date, else text; an enum value of its list (or none);
// references to existing records of the target sheet (or none).
std::string VTSaveUnfitValue(VTSheet* sheet, NSArray* descriptor, NSObject* value);

// Sends the sheet a row hook (didSelectRow:, willStoreRow:) with the row as
// a number retained for it, which the hook releases; nothing when the sheet
// doesn't answer the hook.
void VTSendRowHook(VTSheet* sheet, SEL hook, int32_t row);

// Writes one Save into the sheet's matrix, inside a transaction that the
// caller has begun: every field in field order with its VTSaveValueOf, a
// new record at the end of the matrix when `row` is -1, then the sheet's
// willStoreRow: hook. Answers the row written. The caller commits.
int32_t VTSaveWriteFields(VTSheet* sheet, NSDictionary* values, int32_t row);
