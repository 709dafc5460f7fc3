"""A minimal Scrapy spider over the generated listing pages, for bench/run_bench.sh to time beside
gleanwright: the same pages read through file:// addresses, the same fields cut with CSS
selectors (a book's title, subtitle and price; a review's reviewer and comment as text), one item
per book and one per review, written as JSON lines by Scrapy's own feed export.

    /usr/bin/python3 -m scrapy runspider bench/listing_spider.py -a folder=PAGES -O rows.jl
"""

import os

import scrapy


class ListingSpider(scrapy.Spider):
    name = "listing"
    custom_settings = {
        "LOG_LEVEL": "WARNING",
        "ROBOTSTXT_OBEY": False,
        "TELNETCONSOLE_ENABLED": False,
        "COOKIES_ENABLED": False,
    }

    def __init__(self, folder, **kwargs):
        super().__init__(**kwargs)
        self.folder = os.path.abspath(folder)

    def start_requests(self):
        for name in sorted(os.listdir(self.folder)):
            if name.endswith(".htm"):
                yield scrapy.Request("file://" + os.path.join(self.folder, name))

    def parse(self, response):
        for order, book in enumerate(response.css("div.book"), start=1):
            yield {
                "table": "books",
                "order_on_page": order,
                "title": book.css("h2::text").get(),
                "subtitle": book.css("em::text").get(),
                "price": book.css("span.price::text").get(),
            }
            for review in book.css("li.review"):
                yield {
                    "table": "reviews",
                    "parent_order_on_page": order,
                    "reviewer": review.css("b::text").get(),
                    "comment": "".join(review.css("p ::text").getall()),
                }
