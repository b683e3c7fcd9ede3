namespace cpp Corvane.Bench.Wire

struct Totals {
    1: i64 messages
    2: i64 bytes
}

service Bench {
    binary request(1: binary up)
    oneway void message(1: binary body)
    Totals totals()
}
