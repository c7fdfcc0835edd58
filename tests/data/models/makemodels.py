#!/usr/bin/env python3
"""Writes the models beside it: one textured prism in every format, by hand, so that nothing but the formats'
own descriptions says how they are to be read.

The prism in metres, x to the east, y to the north, z up:  its south wall shows a letter, seen upright and the
right way round from the south; no two of its sides are alike. Formats with nodes stand it 100 m to the east,
200 m to the north and 300 m up. The wall in the north-east is glass.
"""
import base64
import json
import struct
import zlib
from pathlib import Path

HERE = Path(__file__).parent
A0, B0, C0 = (0, 0, 0), (3, 0, 0), (0, 2, 0)
A1, B1, C1 = (0, 0, 4), (3, 0, 4), (0, 2, 5)
UV = [(0, 0), (1, 0), (1, 1), (0, 1)]
# Corners counter-clockwise as seen from outside.
WALL, PLAIN, GLASS = [[A0, B0, B1, A1]], [[A0, C0, B0], [A1, B1, C1], [C0, A0, A1, C1]], [[B0, C0, C1, B1]]
GROUPS = [("letter", WALL), ("plain", PLAIN), ("glass", GLASS)]
PLACE = (100, 200, 300)
PLAIN_COLOR, GLASS_COLOR, GLASS_ALPHA = (0.5, 0.25, 0.125), (0.25, 0.5, 1), 0.5

# Of a material whose texture says the colour.
HIDDEN_COLOR = (0.1, 0.2, 0.3)


def letter():
    """8 by 8 pixels of an F, white on red, first line at the top."""
    rows = ["........", ".######.", ".#......", ".####...", ".#......", ".#......", ".#......", "........"]
    return [[(255, 255, 255) if c == "#" else (200, 0, 0) for c in row] for row in rows]


def png():
    lines = b"".join(b"\0" + bytes(v for p in row for v in p) for row in letter())

    def chunk(name, data):
        return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))

    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 8, 8, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(lines, 9)) + chunk(b"IEND", b""))


def triangles(polygons):
    """Corners with texture coordinates, three for each triangle."""
    out = []
    for polygon in polygons:
        for i in range(1, len(polygon) - 1):
            out += [(polygon[k], UV[k]) for k in (0, i, i + 1)]
    return out


def normal(a, b, c):
    u, v = [q - p for p, q in zip(a, b)], [q - p for p, q in zip(a, c)]
    n = (u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0])
    length = sum(x * x for x in n) ** 0.5
    return tuple(x / length for x in n)


def normals(corners):
    out = []
    for i in range(0, len(corners), 3):
        out += [normal(corners[i][0], corners[i + 1][0], corners[i + 2][0])] * 3
    return out


def text(values):
    return " ".join(f"{v:g}" for value in values for v in value)


def obj():
    points = [A0, B0, C0, A1, B1, C1]
    lines = ["# a prism", "mtllib prism.mtl"] + [f"v {x} {y} {z}" for x, y, z in points]
    lines += [f"vt {s} {t}" for s, t in UV]
    for name, polygons in GROUPS:
        lines.append(f"usemtl {name}")
        lines += ["f " + " ".join(f"{points.index(p) + 1}/{k + 1}" for k, p in enumerate(polygon))
                  for polygon in polygons]
    (HERE / "prism.obj").write_text("\n".join(lines) + "\n")
    color = "Kd {:g} {:g} {:g}".format
    (HERE / "prism.mtl").write_text("\n".join(
        ["newmtl letter", "Kd 1 1 1", "map_Kd Textures\\LETTER.png", "newmtl plain", color(*PLAIN_COLOR),
         "newmtl glass", color(*GLASS_COLOR), f"d {GLASS_ALPHA}"]) + "\n")


def dae():
    effects, materials, geometries, nodes = "", "", "", ""
    diffuse = {"letter": '<texture texture="letter-sampler" texcoord="map"/>',
               "plain": f"<color>{text([PLAIN_COLOR])} 1</color>", "glass": f"<color>{text([GLASS_COLOR])} 1</color>"}
    for name, polygons in GROUPS:
        sampler = ('<newparam sid="letter-surface"><surface type="2D"><init_from>letter-image</init_from></surface>'
                   '</newparam><newparam sid="letter-sampler"><sampler2D><source>letter-surface</source></sampler2D>'
                   '</newparam>') if name == "letter" else ""
        clear = (f'<transparent opaque="A_ONE"><color>0 0 0 1</color></transparent><transparency><float>{GLASS_ALPHA}'
                 '</float></transparency>') if name == "glass" else ""
        effects += (f'<effect id="{name}-effect"><profile_COMMON>{sampler}<technique sid="common"><lambert><diffuse>'
                    f'{diffuse[name]}</diffuse>{clear}</lambert></technique></profile_COMMON></effect>\n')
        materials += f'<material id="{name}"><instance_effect url="#{name}-effect"/></material>\n'
        corners = triangles(polygons)
        arrays = [("p", "XYZ", [c[0] for c in corners]), ("n", "XYZ", normals(corners)),
                  ("t", "ST", [c[1] for c in corners])]
        sources = "".join(
            f'<source id="{name}-{i}"><float_array id="{name}-{i}-a" count="{len(v) * len(axes)}">{text(v)}'
            f'</float_array><technique_common><accessor source="#{name}-{i}-a" count="{len(v)}" stride="{len(axes)}">'
            + "".join(f'<param name="{a}" type="float"/>' for a in axes) + "</accessor></technique_common></source>\n"
            for i, axes, v in arrays)
        indices = " ".join(str(i) for i in range(len(corners)))
        geometries += (f'<geometry id="{name}-mesh"><mesh>{sources}<vertices id="{name}-v"><input semantic="POSITION" '
                       f'source="#{name}-p"/></vertices><triangles material="m" count="{len(corners) // 3}">'
                       f'<input semantic="VERTEX" source="#{name}-v" offset="0"/><input semantic="NORMAL" '
                       f'source="#{name}-n" offset="0"/><input semantic="TEXCOORD" source="#{name}-t" offset="0" '
                       f'set="0"/><p>{indices}</p></triangles></mesh></geometry>\n')
        nodes += (f'<instance_geometry url="#{name}-mesh"><bind_material><technique_common><instance_material '
                  f'symbol="m" target="#{name}"><bind_vertex_input semantic="map" input_semantic="TEXCOORD" '
                  'input_set="0"/></instance_material></technique_common></bind_material></instance_geometry>\n')
    (HERE / "prism.dae").write_text(
        '<?xml version="1.0" encoding="utf-8"?>\n<COLLADA xmlns="http://www.collada.org/2005/11/COLLADASchema" '
        'version="1.4.1"><asset><unit name="metre" meter="1"/><up_axis>Z_UP</up_axis></asset>\n<library_images>'
        '<image id="letter-image"><init_from>textures/Letter%2Epng</init_from></image></library_images>\n'
        f'<library_materials>{materials}</library_materials><library_effects>{effects}</library_effects>\n'
        f'<library_geometries>{geometries}</library_geometries>\n<library_visual_scenes><visual_scene id="scene">'
        f'<node id="prism"><translate>{text([PLACE])}</translate>{nodes}</node></visual_scene>'
        '</library_visual_scenes><scene><instance_visual_scene url="#scene"/></scene></COLLADA>\n')


def gltf_parts(image, mirrored=False):
    def y_up(p):
        return (p[0], p[2], -p[1])

    blob, views, accessors, primitives = b"", [], [], []
    for material, (name, polygons) in enumerate(GROUPS):
        corners = triangles(polygons)
        parts = [("POSITION", "VEC3", [y_up(c[0]) for c in corners]),
                 ("NORMAL", "VEC3", [y_up(n) for n in normals(corners)]),
                 # The first line of an image has t = 0.
                 ("TEXCOORD_0", "VEC2", [(c[1][0], 1 - c[1][1]) for c in corners])]
        attributes = {}
        for semantic, kind, values in parts:
            data = b"".join(struct.pack("<f", v) for value in values for v in value)
            views.append({"buffer": 0, "byteOffset": len(blob), "byteLength": len(data)})
            accessor = {"bufferView": len(views) - 1, "componentType": 5126, "count": len(values), "type": kind}
            if semantic == "POSITION":
                accessor["min"] = [min(v[i] for v in values) for i in range(3)]
                accessor["max"] = [max(v[i] for v in values) for i in range(3)]
            attributes[semantic] = len(accessors)
            accessors.append(accessor)
            blob += data
        primitives.append({"attributes": attributes, "material": material})
    if image is None:
        views.append({"buffer": 0, "byteOffset": len(blob), "byteLength": len(png())})
        blob += png()
        image = {"bufferView": len(views) - 1, "mimeType": "image/png"}
    node = {"mesh": 0, "name": "prism", "translation": y_up(PLACE)}
    if mirrored:
        node["scale"] = [-1, 1, 1]
    return blob, {
        "asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0]}], "nodes": [node],
        "meshes": [{"primitives": primitives}], "images": [image], "textures": [{"source": 0}],
        "materials": [
            {"name": "letter", "pbrMetallicRoughness": {"baseColorTexture": {"index": 0}}},
            {"name": "plain", "pbrMetallicRoughness": {"baseColorFactor": [*PLAIN_COLOR, 1]}},
            {"name": "glass", "alphaMode": "BLEND",
             "pbrMetallicRoughness": {"baseColorFactor": [*GLASS_COLOR, GLASS_ALPHA]}}],
        "accessors": accessors, "bufferViews": views, "buffers": [{"byteLength": len(blob)}]}


def gltf():
    blob, document = gltf_parts({"uri": "textures/letter.png"})
    document["buffers"][0]["uri"] = "prism.bin"
    (HERE / "prism.bin").write_bytes(blob)
    (HERE / "prism.gltf").write_text(json.dumps(document) + "\n")
    blob, document = gltf_parts({"uri": "textures/letter.png"}, True)
    document["buffers"][0]["uri"] = "data:application/octet-stream;base64," + base64.b64encode(blob).decode()
    (HERE / "mirrored.gltf").write_text(json.dumps(document) + "\n")


def glb():
    blob, document = gltf_parts(None)
    text_part = json.dumps(document).encode()
    text_part += b" " * (-len(text_part) % 4)
    blob += b"\0" * (-len(blob) % 4)
    parts = (struct.pack("<II", len(text_part), 0x4E4F534A) + text_part
             + struct.pack("<II", len(blob), 0x004E4942) + blob)
    (HERE / "prism.glb").write_bytes(struct.pack("<III", 0x46546C67, 2, 12 + len(parts)) + parts)


def fbx():
    """Text, z up, in inches."""
    inch = 0.0254
    points = [A0, B0, C0, A1, B1, C1]
    polygons = [(m, polygon) for m, (_, group) in enumerate(GROUPS) for polygon in group]
    indices, coordinates = [], []
    for _, polygon in polygons:
        numbers = [points.index(p) for p in polygon]
        indices += numbers[:-1] + [-numbers[-1] - 1]
        coordinates += [v for k in range(len(polygon)) for v in UV[k]]

    def array(values):
        values = [f"{v:.10g}" for v in values]
        return f"*{len(values)} {{\n a: {','.join(values)}\n}}"

    def color(values):
        return 'P: "DiffuseColor", "Color", "", "A",' + ",".join(f"{v:g}" for v in values)

    scaled = [v / inch for p in points for v in p]
    place = ",".join(f"{v / inch:.10g}" for v in PLACE)
    (HERE / "prism.fbx").write_text(f"""; FBX 7.3.0 project file
FBXHeaderExtension:  {{
 FBXHeaderVersion: 1003
 FBXVersion: 7300
}}
GlobalSettings:  {{
 Version: 1000
 Properties70:  {{
  P: "UpAxis", "int", "Integer", "",2
  P: "UpAxisSign", "int", "Integer", "",1
  P: "FrontAxis", "int", "Integer", "",1
  P: "FrontAxisSign", "int", "Integer", "",-1
  P: "CoordAxis", "int", "Integer", "",0
  P: "CoordAxisSign", "int", "Integer", "",1
  P: "UnitScaleFactor", "double", "Number", "",2.54
 }}
}}
Objects:  {{
 Geometry: 10, "Geometry::prism", "Mesh" {{
  Vertices: {array(scaled)}
  PolygonVertexIndex: {array(indices)}
  GeometryVersion: 124
  LayerElementUV: 0 {{
   Version: 101
   Name: "map"
   MappingInformationType: "ByPolygonVertex"
   ReferenceInformationType: "Direct"
   UV: {array(coordinates)}
  }}
  LayerElementMaterial: 0 {{
   Version: 101
   Name: ""
   MappingInformationType: "ByPolygon"
   ReferenceInformationType: "IndexToDirect"
   Materials: {array([m for m, _ in polygons])}
  }}
  Layer: 0 {{
   Version: 100
   LayerElement:  {{
    Type: "LayerElementUV"
    TypedIndex: 0
   }}
   LayerElement:  {{
    Type: "LayerElementMaterial"
    TypedIndex: 0
   }}
  }}
 }}
 Model: 20, "Model::prism", "Mesh" {{
  Version: 232
  Properties70:  {{
   P: "Lcl Translation", "Lcl Translation", "", "A",{place}
  }}
 }}
 Material: 30, "Material::letter", "" {{
  Version: 102
  ShadingModel: "lambert"
  Properties70:  {{
   {color(HIDDEN_COLOR)}
  }}
 }}
 Material: 31, "Material::plain", "" {{
  Version: 102
  ShadingModel: "lambert"
  Properties70:  {{
   {color(PLAIN_COLOR)}
  }}
 }}
 Material: 32, "Material::glass", "" {{
  Version: 102
  ShadingModel: "lambert"
  Properties70:  {{
   {color(GLASS_COLOR)}
   P: "Opacity", "double", "Number", "",{GLASS_ALPHA}
  }}
 }}
 Texture: 40, "Texture::letter", "" {{
  Type: "TextureVideoClip"
  Version: 202
  TextureName: "Texture::letter"
  FileName: "textures\\letter.png"
  RelativeFilename: "textures\\letter.png"
 }}
}}
Connections:  {{
 C: "OO",20,0
 C: "OO",10,20
 C: "OO",30,20
 C: "OO",31,20
 C: "OO",32,20
 C: "OP",40,30, "DiffuseColor"
}}
""")


def max3ds():
    def chunk(number, data):
        return struct.pack("<HI", number, 6 + len(data)) + data

    def name(text_value):
        return text_value.encode() + b"\0"

    def color(values):
        return chunk(0x0010, struct.pack("<fff", *values))

    def material(label, rgb, alpha=None, file=None):
        parts = chunk(0xA000, name(label)) + chunk(0xA020, color(rgb))
        if alpha is not None:
            parts += chunk(0xA050, chunk(0x0030, struct.pack("<h", round(100 * (1 - alpha)))))
        if file:
            parts += chunk(0xA200, chunk(0x0030, struct.pack("<h", 100)) + chunk(0xA300, name(file)))
        return chunk(0xAFFF, parts)

    corners, faces, groups = [], [], []
    for label, polygons in GROUPS:
        part = triangles(polygons)
        first = len(faces)
        for i in range(0, len(part), 3):
            faces.append((len(corners) + i, len(corners) + i + 1, len(corners) + i + 2))
        corners += part
        groups.append((label, range(first, len(faces))))
    face_data = struct.pack("<H", len(faces)) + b"".join(struct.pack("<HHHH", *f, 0) for f in faces)
    for label, numbers in groups:
        face_data += chunk(0x4130, name(label) + struct.pack("<H", len(numbers))
                           + b"".join(struct.pack("<H", i) for i in numbers))
    mesh = (chunk(0x4110, struct.pack("<H", len(corners)) + b"".join(struct.pack("<fff", *c[0]) for c in corners))
            + chunk(0x4140, struct.pack("<H", len(corners)) + b"".join(struct.pack("<ff", *c[1]) for c in corners))
            + chunk(0x4120, face_data))
    editor = (chunk(0x3D3E, struct.pack("<I", 3)) + material("letter", HIDDEN_COLOR, file="letter.png")
              + material("plain", PLAIN_COLOR) + material("glass", GLASS_COLOR, GLASS_ALPHA)
              + chunk(0x4000, name("prism") + chunk(0x4100, mesh)))
    (HERE / "prism.3ds").write_bytes(chunk(0x4D4D, chunk(0x0002, struct.pack("<I", 3)) + chunk(0x3D3D, editor)))


def stl():
    corners = [c for _, polygons in GROUPS for c in triangles(polygons)]
    data = b"a prism".ljust(80, b" ") + struct.pack("<I", len(corners) // 3)
    for i in range(0, len(corners), 3):
        points = [c[0] for c in corners[i:i + 3]]
        data += struct.pack("<12fH", *normal(*points), *points[0], *points[1], *points[2], 0)
    (HERE / "prism.stl").write_bytes(data)


def ply():
    points = [A0, B0, C0, A1, B1, C1]
    colors = [(255, 0, 0), (0, 255, 0), (0, 0, 255), (255, 255, 0), (0, 255, 255), (255, 0, 255)]
    polygons = [p for _, group in GROUPS for p in group]
    lines = ["ply", "format ascii 1.0", f"element vertex {len(points)}", "property float x", "property float y",
             "property float z", "property uchar red", "property uchar green", "property uchar blue",
             f"element face {len(polygons)}", "property list uchar int vertex_indices", "end_header"]
    lines += [" ".join(str(v) for v in p + c) for p, c in zip(points, colors)]
    lines += [" ".join(str(v) for v in [len(p)] + [points.index(q) for q in p]) for p in polygons]
    (HERE / "prism.ply").write_text("\n".join(lines) + "\n")


if __name__ == "__main__":
    (HERE / "textures").mkdir(exist_ok=True)
    (HERE / "textures" / "letter.png").write_bytes(png())
    for write in (obj, dae, gltf, glb, fbx, max3ds, stl, ply):
        write()
