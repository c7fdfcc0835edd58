#!/usr/bin/env bash
# Builds the program and renders the sample data into out/.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() {
    echo "demo: $*" >&2
    exit 1
}

scripts/install_dependencies.sh || fail "the dependencies could not be installed"
cmake --preset release || fail "the release preset could not be configured"
cmake --build --preset release --target zmt zmt_viewer || fail "the programs do not build"

zmt=build/release/apps/zmt/zmt
[[ -x "$zmt" ]] || fail "$zmt was not built"
mkdir -p out

# Name of the picture, then what zmt render is told beyond the sample data.
render() {
    local name=$1
    shift
    echo "demo: out/$name.png"
    "$zmt" render --out "out/$name.png" --stats "out/$name.json" "$@" 2>"out/$name.log" ||
        fail "$(tail -n 1 "out/$name.log")"
    cat "out/$name.json"
}

everest_terrain=(--terrain data/everest_srtm3.tif --fill-voids)
everest=("${everest_terrain[@]}" --image data/everest_landsat7_rgb.tif)
tree=("${everest[@]}" --method tree)
chunked=("${everest[@]}" --method chunked)
jacksboro=(--terrain data/jacksboro_srtm3.tif --method tree --exaggeration 2)
glaciers=data/everest_glaciers.geojson

# The best levels of detail, and those that start at once. The radar saw nothing of many a steep slope.
render everest_overview "${tree[@]}"
render everest_closeup "${tree[@]}" --view closeup
render everest_closeup_patches "${tree[@]}" --view closeup --patches
render everest_chunked "${chunked[@]}"
render everest_chunked_closeup "${chunked[@]}" --view closeup
render everest_chunked_patches "${chunked[@]}" --view closeup --patches

# Light, and heights three times as high.
render jacksboro_overview "${jacksboro[@]}"
render jacksboro_static_light "${jacksboro[@]}" --lighting static --light 90,25,0.2
render jacksboro_pixel_light "${jacksboro[@]}" --lighting dynamic --light 90,25,0.2
render everest_exaggerated "${chunked[@]}" --exaggeration 3

# What lies in and on the ground: the crest of a dam as edges of the terrain, and areas above it.
render jacksboro_break_lines --terrain data/jacksboro_srtm3.tif --method tree --breaklines data/jacksboro_dam.geojson \
    --lighting vertex --light 300,30,0.3 --view 755300,4038800,950,755300,4043000,300
render everest_draped "${chunked[@]}" --drape "$glaciers" --drape-lift 300 --view closeup

# A map: contours by their height, glaciers, the countries of the Earth with their names, and a way in three moments.
vectors=(--overlay data/everest_contours.geojson --style data/everest_contours.style
    --overlay "$glaciers" --style 'fill=#60b0ff50,color=#2060c0,width=1.5')
above=(--lonlat --view at:86.87,27.93,20,30,22000)
render everest_map "${chunked[@]}" "${vectors[@]}" "${above[@]}"
render world_map --terrain data/world_etopo15.tif --exaggeration 20 --view north \
    --overlay data/world_coastline.geojson --style 'color=#303030,width=1' \
    --overlay data/world_countries.geojson --style 'fill=#00000000,color=#803060,width=1,label=name,halo=2'
for seconds in 600 1800 3600; do
    render "everest_way_$seconds" "${chunked[@]}" "${above[@]}" --track data/everest_way.gpx --time "+$seconds"
done
"$zmt" pick "${everest_terrain[@]}" "${above[@]}" --overlay "$glaciers" 590,330 || fail "nothing was picked"

# Maps of the relief: strokes down the slopes as a picture and as lines, a shade, and the light of sky and sun.
relief() {
    echo "demo: $3"
    "$zmt" relief "$@" 2>out/relief.log || fail "$(tail -n 1 out/relief.log)"
}
for name in jacksboro_hachures.tif jacksboro_hachures.png jacksboro_hachures.gpkg jacksboro_hachures.svg; do
    relief hachures data/jacksboro_srtm3.tif "out/$name" --reference shade
done
relief shade data/jacksboro_srtm3.tif out/jacksboro_shade.tif
relief occlusion data/everest_srtm3.tif out/everest_occlusion.png --directions 40
relief sun data/everest_srtm3.tif out/everest_sun.png --directions 10

# The image as a pyramid in one file, and where a pixel lies.
"$zmt" build pyramid data/everest_landsat7_rgb.tif out/everest_landsat7.ztp --deflate 2>out/pyramid.log ||
    fail "$(tail -n 1 out/pyramid.log)"
"$zmt" info out/everest_landsat7.ztp || fail "the pyramid cannot be read"
render everest_pyramid "${everest_terrain[@]}" --method chunked --image out/everest_landsat7.ztp
"$zmt" pick "${everest_terrain[@]}" 640,360 || fail "nothing was picked"

# Heights and image as two files of tiles, drawn from a web server while they are read.
"$zmt" build terrain data/everest_srtm3.tif out/everest.ztt --fill-voids 2>out/terrain.log || fail "$(tail -n 1 out/terrain.log)"
"$zmt" build texture data/everest_landsat7_rgb.tif out/everest.zts --terrain out/everest.ztt 2>out/texture.log ||
    fail "$(tail -n 1 out/texture.log)"
"$zmt" info out/everest.ztt || fail "the streaming terrain cannot be read"
port=18080
sed "s/127.0.0.1:8080/127.0.0.1:$port/; s#/tmp/zmt-nginx#$PWD/out/nginx#" docs/nginx-ranges.conf >out/nginx.conf
PATH=$PATH:/usr/sbin nginx -e stderr -c "$PWD/out/nginx.conf" -p "$PWD/out" 2>out/nginx.log &
server=$!
trap 'kill "$server" 2>/dev/null || true' EXIT
for _ in $(seq 50); do
    "$zmt" info "http://127.0.0.1:$port/everest.ztt" >/dev/null 2>&1 && break
    sleep 0.2
done
render everest_streamed --terrain "http://127.0.0.1:$port/everest.ztt" --image "http://127.0.0.1:$port/everest.zts"
render everest_streamed_closeup --terrain "http://127.0.0.1:$port/everest.ztt" \
    --image "http://127.0.0.1:$port/everest.zts" --view 481000,3083000,9000,487000,3092500,5500

# A town of one house: near, far, and on a hill, where little of the sky reaches what lies below its balconies.
town=(data/testtown/testtown_lod3.obj --up z --atlas-size 512)
"$zmt" build city "${town[@]}" --at 754000,4040000,0 --system EPSG:32616 --out out/town.city 2>out/city.log ||
    fail "$(tail -n 1 out/city.log)"
"$zmt" info out/town.city || fail "the city cannot be read"
render town_near --city out/town.city --view 753960,4039985,20,754006,4040009,10
render town_far --city out/town.city --view 753600,4039600,200,754006,4040009,10
"$zmt" build city "${town[@]}" --at 754000,4040000 --terrain data/jacksboro_srtm3.tif --occlusion \
    --out out/hilltown.city 2>out/city.log ||
    fail "$(tail -n 1 out/city.log)"
render town_on_terrain "${jacksboro[@]:0:2}" --city out/hilltown.city \
    --view 753966,4039982,+18,754004,4040009,+9

# A mesh for printing, and how it looks when it is read back.
"$zmt" mesh data/everest_srtm3.tif out/everest.stl --fill-voids --error 40 --base=-1500 --width 150 2>out/mesh.log ||
    fail "$(tail -n 1 out/mesh.log)"
"$zmt" mesh "${everest_terrain[1]}" out/everest.glb --fill-voids --error 40 --image data/everest_landsat7_rgb.tif \
    2>out/mesh.log || fail "$(tail -n 1 out/mesh.log)"
"$zmt" build city out/everest.stl --at 500000,3000000,0 --system EPSG:32645 --shade 315,40,0.35 --out out/print.city \
    2>out/mesh.log || fail "$(tail -n 1 out/mesh.log)"
render mesh --city out/print.city --view 499975,2999815,95,500002,2999990,0

# The window, on a screen in memory.
echo "demo: out/window.png"
xvfb-run -a -s "-screen 0 1400x900x24" "$zmt" view data/everest_srtm3.tif data/everest_landsat7_rgb.tif \
    --fill-voids --method chunked --view closeup --screenshot out/window.png 2>out/window.log || fail "$(tail -n 1 out/window.log)"

# A flight between three views as a strip of its frames, and the window with these and the profile of a line.
ways=(data/everest_srtm3.tif data/everest_landsat7_rgb.tif --fill-voids --method chunked --lonlat
    --bookmark at:86.86,27.93,20,30,22000 --bookmark at:86.86,27.93,345,25,14000 --bookmark at:86.82,27.9,300,30,20000)
view() {
    local name=$1
    shift
    echo "demo: out/$name.png"
    xvfb-run -a -s "-screen 0 1400x900x24" "$zmt" view "${ways[@]}" "$@" 2>"out/$name.log" ||
        fail "$(tail -n 1 "out/$name.log")"
}
view flight --size 720x480 --frames 6 --flight out/flight.png
view profile --view at:86.86,27.93,20,30,22000 --measure 481000,3088000,487000,3092500,494000,3095000 \
    --screenshot out/profile.png

echo "demo: the pictures and their statistics are in out/"
