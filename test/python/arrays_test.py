"""Arrays in and out: shapes, types, layouts, and what is refused."""
import gc
import unittest

import support
import numpy as np
import velto

U, V = np.meshgrid(np.linspace(0, 1, 7), np.linspace(0, 1, 5))


class Arrays(unittest.TestCase):
    def setUp(self):
        self.graph = velto.load(support.CLOUD)
        self.expected = self.graph.sample(U, V)

    def assert_same(self, values, index=...):
        for name, expected in self.expected.items():
            np.testing.assert_array_equal(values[name], expected[index])

    def test_results_have_the_shape_of_the_samples(self):
        self.assertEqual((5, 7, 4), self.expected["color"].shape)
        self.assertEqual(np.float64, self.expected["color"].dtype)
        self.assertTrue(self.expected["color"].flags.c_contiguous)
        for shape in ((), (1,), (0,), (3, 0), (2, 1, 3)):
            values = self.graph.sample(np.full(shape, 0.5), 0.25)
            self.assertEqual(shape + (4,), values["color"].shape)
        self.assertEqual((), self.graph.sample(0.5, 0.25)["grey"].shape[:-1])

    def test_any_layout_gives_the_same(self):
        wide = np.zeros((10, 14, 2))
        wide[::2, ::2, 0] = U
        wide[::2, ::2, 1] = V
        uvw = np.zeros((3, 5, 7))
        uvw[:2] = U, V
        swapped = U.astype(">f8")
        unaligned = np.frombuffer(b"x" + U.tobytes(), dtype=np.uint8)[1:].view(np.float64).reshape(U.shape)
        readonly = U.copy()
        readonly.flags.writeable = False
        for name, given in {
                "strides": (wide[::2, ::2, 0], wide[::2, ::2, 1]),
                "columns": (np.asfortranarray(U), np.asfortranarray(V)),
                "one of them in columns": (U, np.asfortranarray(V)),
                "broadcast": (U[:1], V[:, :1]),
                "lists": (U.tolist(), V.tolist()),
                "byte order": (swapped, V),
                "unaligned": (unaligned, V),
                "read only": (readonly, V)}.items():
            with self.subTest(name):
                self.assert_same(self.graph.sample(*given))
        self.assert_same(self.graph.sample(uvw=np.moveaxis(uvw, 0, -1)))
        self.assert_same(self.graph.sample(U[::-1, ::-1], V[::-1, ::-1]), np.s_[::-1, ::-1])
        self.assert_same(self.graph.sample(U, V, outputs=["color", "grey"], threads=3))
        values = self.graph.sample(U.astype(np.float32), V.astype(np.float16), outputs="grey")
        self.assertEqual(["grey"], list(values))

    def test_refusals_name_the_argument_and_both_shapes(self):
        for given, parts in (
                (dict(u=np.zeros(3), v=np.zeros(4)), ("v: ", "(3,)", "(4,)", "u")),
                (dict(uvw=np.zeros((5, 2))), ("uvw: ", "(..., 3)", "(5, 2)")),
                (dict(uvw=0.5), ("uvw: ", "(..., 3)", "()")),
                (dict(u=np.zeros(3, complex)), ("u: ", "complex128", "(3,)")),
                (dict(u="left"), ("u: ", "numbers")),
                (dict(u=[[1], [1, 2]]), ("u: ",)),
                (dict(u=None, normal=np.zeros((2, 3)), time=np.zeros(5)), ("time: ", "(5,)", "(2,)", "normal")),
                (dict(pixel=np.zeros((4, 2))), ("pixel: ", "whole", "float64", "(4, 2)")),
                (dict(outputs=["colour"]), ("outputs: ", "colour", "color, grey")),
                (dict(threads=0), ("threads: ", "0")),
                (dict(tile_mode_u=4), ("tile_mode_u: ", "4"))):
            with self.subTest(str(given)), self.assertRaises(ValueError) as raised:
                self.graph.sample(**given)
            for part in parts:
                self.assertIn(part, str(raised.exception))
        for given, parts in (
                (dict(size=(0, 4)), ("size: ", "0 x 4")), (dict(size=(40_000, 4)), ("size: ", "40000")),
                (dict(size=1.5), ("size: ",)), (dict(size=(8, 8), crop=(4, 4, 5, 1)), ("crop: ", "8 x 8")),
                (dict(size=8, supersample=65), ("supersample: ", "65")), (dict(size=8, shape="cube"), ("shape: ",)),
                (dict(size=8, outputs=["none"]), ("outputs: ", "none"))):
            with self.subTest(str(given)), self.assertRaises((ValueError, TypeError)) as raised:
                self.graph.bake(**given)
            for part in parts:
                self.assertIn(part, str(raised.exception))

    def test_numbers_that_are_none_are_values(self):
        strange = np.array([np.nan, np.inf, -np.inf, 1e308, -0.0])
        together = self.graph.sample(strange, 0.5)
        for i, number in enumerate(strange):
            alone = self.graph.sample(number, 0.5)
            for name in together:
                np.testing.assert_array_equal(together[name][i], alone[name])

    def test_fields_reach_the_nodes(self):
        facing = velto.parse({"version": 1, "nodes": {
            "glass": {"type": "fresneldielectric"}}, "outputs": {"value": "glass.result"}})
        straight, grazing = facing.sample(normal=[[0, 0, 1], [0, 0.995, 0.0998]], ray_direction=[0, 0, -1])["value"]
        self.assertLess(np.max(straight), np.max(grazing))
        noise = velto.parse({"version": 1, "nodes": {"n": {"type": "noise"}}, "outputs": {"n": "n.result"}})
        with_place = noise.sample(0.3, 0.3)["n"]
        self.assertEqual(0, noise.sample(0.3, 0.3, uvw_valid=False)["n"])
        self.assertEqual(with_place, noise.sample(0.3, 0.3)["n"])  # the mode was that call's alone
        self.assertNotEqual(0, with_place)

    def test_pictures_are_not_copied(self):
        picture = self.graph.bake((12, 8))["color"]
        self.assertEqual((8, 12, 4), picture.shape)
        self.assertEqual(np.float32, picture.dtype)
        self.assertTrue(picture.flags.c_contiguous and picture.flags.owndata and picture.flags.writeable)
        part = self.graph.bake((12, 8), crop=(3, 2, 5, 4))["color"]
        np.testing.assert_array_equal(picture[2:6, 3:8], part)
        grey = velto.parse({"version": 1, "nodes": {
            "n": {"type": "noise"}, "f": {"type": "colortofloat", "inputs": {"color": {"from": "n.result"}}}},
            "outputs": {"f": "f.result"}}).bake(6)["f"]
        self.assertEqual((6, 6), grey.shape)

    def test_arrays_outlive_the_graph(self):
        picture = self.graph.bake(8)["color"]
        values = self.expected["color"]
        before = picture.copy(), values.copy()
        self.graph = self.expected = None
        gc.collect()
        np.testing.assert_array_equal(before[0], picture)
        np.testing.assert_array_equal(before[1], values)


if __name__ == "__main__":
    support.main()
