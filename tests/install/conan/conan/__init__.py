"""Stands in for the Conan of the same name, as far as our recipe uses it when sources are exported."""


class ConanFile:
    recipe_folder = None
    export_sources_folder = None
