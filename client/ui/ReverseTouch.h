// The arithmetic and the message text of the reverse screen's input: where a
// pointer position over the shown panel lies in panel units, and the JSON
// text that carries one touch (or the home/back keys) to the panel.
#pragma once

#include <QByteArray>
#include <QEvent>

namespace qorquicomponents {
namespace reverse_touch {

// One axis: a global pointer coordinate over a window whose frame starts at
// windowPos and whose client area starts frameOffset further in, shown
// across extent pixels; 0..65535 across the shown area (integer arithmetic,
// truncating). 0 when extent is not positive.
int toPanelUnits(int globalPos, int windowPos, int frameOffset, int extent);

// The touch type of a mouse event: "touchDown" for press and double-click,
// "touchUp" for release, "touchMove" for move; null for other events.
const char* touchTypeFor(QEvent::Type type);

// The message text as the panel reads it, e.g. for ("touchDown", 10, 20):
// {\n"touchControl":\n{\n\t"id":1,\n\t"timestamp":...,\n\t"ctrlType":"touchDown",\n\t"x":10,\n\t"y":20\n}\n}\n
QByteArray touchControlJson(const char* ctrlType, int x, int y, long long timestampMs);

// The same with the current time.
QByteArray touchControlJsonNow(const char* ctrlType, int x, int y);

}  // namespace reverse_touch
}  // namespace qorquicomponents
