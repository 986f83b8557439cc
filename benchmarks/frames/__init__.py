"""The same questions, asked of data-frame libraries, as far as they can express them."""
