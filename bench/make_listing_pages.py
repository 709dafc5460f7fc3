#!/usr/bin/python3
"""Writes N listing pages shaped like the bookshop sample (examples/bookshop/pages) into a folder.

    bench/make_listing_pages.py COUNT FOLDER [SEED]

Each page is about 40 KB: a header with navigation, 30 to 50 books (40 on average), each with a
title, an optional subtitle (two books in three), a price, a blurb the template does not read, and
0 to 5 reviews (2.5 on average), then a footer. The pages and their contents follow from the seed
alone, so two runs with the same arguments write the same files. It prints the number of pages,
books and reviews written, which is what the bookshop package must extract from them.
"""

import os
import random
import sys

WORDS = (
    "harbour salt cedar lantern river north clock apprentice garden winter summer letters "
    "island quiet storm light house road mountain small history family secret journey "
    "autumn orchard bridge silver window morning evening city village stone paper glass"
).split()
NAMES = "Ann Tomas Lee Maria Sam Priya José Chen Olu Ines Kofi Mira Jonas Aiko Rosa".split()


def phrase(rng, lo, hi):
    return " ".join(rng.choice(WORDS) for _ in range(rng.randint(lo, hi)))


def book(rng):
    title = phrase(rng, 2, 5).title()
    parts = ['<div class="book">\n', f"  <h2>{title}</h2>\n"]
    if rng.randrange(3) != 0:
        parts.append(f"  <em>{phrase(rng, 3, 6).capitalize()}</em>\n")
    parts.append(f'  <span class="price">Price: ${rng.randint(2, 60)}.{rng.randint(0, 99):02d}</span>\n')
    # Text the template does not read: a page is mostly text between the fields.
    parts.append(f'  <div class="blurb">{phrase(rng, 40, 80)}.</div>\n')
    reviews = rng.randint(0, 5)
    parts.append('  <ul class="reviews">\n')
    for _ in range(reviews):
        parts.append(
            f'    <li class="review"><b>{rng.choice(NAMES)}</b> <p>{phrase(rng, 4, 12).capitalize()}, '
            f"<i>{rng.choice(WORDS)}</i> {phrase(rng, 3, 10)}.</p></li>\n"
        )
    parts.append("  </ul>\n</div>\n\n")
    return "".join(parts), reviews


def page(rng, number, total):
    nav = " | ".join(f'<a href="page{k}.htm">{k}</a>' for k in range(1, 41))
    head = (
        "<html>\n<head><title>Harbour Books: second-hand fiction, page "
        f"{number}</title></head>\n<body>\n<h1>Second-hand fiction</h1>\n"
        f'<p>Prices include postage within the country.</p>\n<div class="nav">{nav}</div>\n\n'
    )
    body, books, reviews = [], rng.randint(30, 50), 0
    for _ in range(books):
        text, n = book(rng)
        body.append(text)
        reviews += n
    foot = f'<p class="footer">Page {number} of {total}</p>\n<div class="nav">{nav}</div>\n</body>\n</html>\n'
    return head + "".join(body) + foot, books, reviews


def main(argv):
    args = argv[1:]
    if len(args) not in (2, 3) or not args[0].isdigit() or not all(c.isdigit() for c in args[2:]):
        sys.stderr.write(__doc__)
        return 2
    count, folder = int(args[0]), args[1]
    seed = int(args[2]) if len(args) == 3 else 17
    os.makedirs(folder, exist_ok=True)
    rng = random.Random(seed)
    books = reviews = size = 0
    for number in range(1, count + 1):
        text, b, r = page(rng, number, count)
        data = text.encode("utf-8")
        with open(os.path.join(folder, f"page{number:05d}.htm"), "wb") as out:
            out.write(data)
        books, reviews, size = books + b, reviews + r, size + len(data)
    print(f"{count} pages, {books} books, {reviews} reviews, {size // max(count, 1)} bytes a page")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
