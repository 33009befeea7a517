"""The sealing of commands, for clients that are not the library."""

KEY = b"u8jzPde0IgxLd6GncfBAepfJBd0"[:16]
DELTA = 0x9E3779B9
MASK = 0xFFFFFFFF


def seal(text):
    """XXTEA over the text's words and its length, as upper-case hexadecimal."""
    data = text.encode()
    padded = data + bytes(-len(data) % 4) + len(data).to_bytes(4, "little")
    words = [int.from_bytes(padded[i:i + 4], "little") for i in range(0, len(padded), 4)]
    key = [int.from_bytes(KEY[i:i + 4], "little") for i in range(0, 16, 4)]
    count, total, last = len(words), 0, words[-1]
    for _ in range(6 + 52 // count):
        total = (total + DELTA) & MASK
        for i in range(count):
            following = words[(i + 1) % count]
            mixed = ((last >> 5 ^ following << 2) + (following >> 3 ^ last << 4)
                     ^ (total ^ following) + (key[i & 3 ^ total >> 2 & 3] ^ last))
            last = words[i] = (words[i] + mixed) & MASK
    return b"".join(word.to_bytes(4, "little") for word in words).hex().upper()
