// plain: text from outside made harmless to read. Names, senders and header values are whatever a modem received.
//
// The page only ever sets text, never HTML. What is left to do is done here: characters that would be invisible, or turn
// around what stands beside them, become U+FFFD.
const harmful = /[\u0000-\u001f\u007f-\u009f\u2028\u2029\u202a-\u202e\u2066-\u2069\ufeff]/g;

export function plain(text) {
  return String(text ?? "").replace(harmful, "\ufffd");
}
