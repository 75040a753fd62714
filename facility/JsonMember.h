#pragma once

#include <QByteArray>
#include <QByteArrayView>

// Where one member of a JSON object's text lies, found without parsing it: a scan that follows
// strings and brackets only. It checks nothing else; the text on either side is still to be read
// by a real parser. Lets the facility tell, by comparing bytes, that a large member is the same
// as last time.
namespace spinlane::facility {

struct MemberSpan {
    qsizetype begin = -1; // of the member's value; -1 when not found
    qsizetype end = -1; // just after it
    bool found() const { return begin >= 0; }
};

// The value of the member `key` of the object that is the whole of `json`. Not found when the
// text is no object, when it names `key` twice, when a key holds an escape (which could spell
// `key` in another way), or when the value is not an array or an object.
MemberSpan memberSpan(QByteArrayView json, QByteArrayView key);

} // namespace spinlane::facility
