// The 59-byte aircraft-state body of AIRCRAFT_STATE and EXTRA_AIRCRAFT_STATE (after opcode and
// player ID). The server decodes it for its own use and relays the received bytes, never a
// re-encoding; the encoder serves the test client and the load generator.
#pragma once

#include "wire/SngPacket.h"
#include "session/SngAircraftState.h"

// Reads the body at the cursor. Every field is read only when its bytes are there. A body that ends
// early leaves `out` untouched and the cursor unmoved and returns false: the caller drops the
// message rather than take a state with fields made up, and the player's previous state stands.
// Bytes after the body are not read.
bool decodeAircraftState(SngPacket& packet, SngAircraftState& out);

// Appends the 59-byte body. Position and time go out as 32-bit floats; attitude and the vectors are
// rounded to the nearest step of their field. Each vector's scale word is the smallest that covers
// its largest component (at least 1, at most 65535; beyond that the components saturate). Values
// out of a field's range are clamped and NaN goes out as 0, so any state encodes.
void encodeAircraftState(SngPacket& packet, const SngAircraftState& state);
