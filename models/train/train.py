#!/usr/bin/python3
"""Trains the mode-1 denoisers and exports them to ONNX.

The network sees what the Qualcomm back-end hands the runtime: half-resolution tensors of 8-bit
values (the high byte of each 10-bit sample), four luma channels per 2x2 block and, for the YUV
model, the block's chroma pair. The reference runtime scales bytes by 1/255 on the way in and back.

One network is trained; its luma branch sees luma only, so it is also exported on its own as the
4-channel model for luma-only configurations (processType 0).

Noise: Poisson-Gaussian in linear light, parameterised by ISO, then gamma, BT.601 YUV 4:2:0 and
10-bit quantisation, so luma and chroma noise are signal dependent and correlated as in a camera. ISO
is drawn up to 25600, so that 12800, where the network has the most to do, is inside the range.

Data: photographs shipped with python3-skimage, read from its data directory (nothing is fetched),
crops enlarged at random up to 5 times. astronaut, chelsea and coffee are held out for validation.

    /usr/bin/python3 models/train/train.py    # about 320 s of processor time on 1 thread
"""
import argparse
import os
import time

import numpy as np
import skimage.data
import skimage.io
import torch
import torch.nn as nn
import torch.nn.functional as F

TRAIN_FILES = ["rocket.jpg", "motorcycle_left.png", "motorcycle_right.png", "hubble_deep_field.jpg",
               "ihc.png", "retina.jpg", "camera.png", "coins.png", "moon.png", "brick.png", "grass.png",
               "gravel.png", "page.png", "text.png", "cell.png"]
VALIDATION_FILES = ["astronaut.png", "chelsea.png", "coffee.png"]
VALIDATION_ISOS = [800, 3200, 12800]
# The photographs as they are, and enlarged as a 1080p frame of them would be.
VALIDATION_SCALES = [1, 3]

# Sensor model: electrons at full scale for ISO 100, and read noise in electrons.
FULL_WELL = 6000.0
READ_NOISE = 2.5
GAMMA = 2.2


def load_photo(name):
    path = os.path.join(skimage.data.data_dir, name)
    if not os.path.exists(path):
        raise SystemExit(f"{path} is missing: install python3-skimage (nothing is downloaded)")
    img = skimage.io.imread(path)
    if img.ndim == 2:
        img = np.stack([img] * 3, axis=-1)
    img = img[..., :3].astype(np.float32) / 255.0
    h, w = img.shape[0] // 4 * 4, img.shape[1] // 4 * 4
    return torch.from_numpy(img[:h, :w]).permute(2, 0, 1).contiguous()  # 3xHxW sRGB


def add_noise(rgb, iso, gen):
    """Poisson-Gaussian noise in linear light; `rgb` is Nx3xHxW sRGB in [0, 1], `iso` N values."""
    gain = (iso / 100.0).view(-1, 1, 1, 1)
    lin = rgb.clamp(0, 1) ** GAMMA
    electrons = lin * FULL_WELL / gain
    noisy = torch.poisson(electrons, generator=gen) + READ_NOISE * torch.randn(
        electrons.shape, generator=gen)
    return (noisy * gain / FULL_WELL).clamp(0, 1) ** (1.0 / GAMMA)


def to_yuv420(rgb, limited):
    """BT.601 YUV, full or limited range per sample; chroma averaged over 2x2 blocks."""
    r, g, b = rgb[:, 0:1], rgb[:, 1:2], rgb[:, 2:3]
    y = 0.299 * r + 0.587 * g + 0.114 * b
    u = 0.564 * (b - y)
    v = 0.713 * (r - y)
    lim = limited.view(-1, 1, 1, 1)
    y = torch.where(lim, 16 / 255 + y * 219 / 255, y)
    u = torch.where(lim, u * 224 / 255, u) + 0.5
    v = torch.where(lim, v * 224 / 255, v) + 0.5
    return y, F.avg_pool2d(u, 2), F.avg_pool2d(v, 2)


def pack(y, u, v, swap):
    """6-channel tensor: 2x2 luma block in row order, then the chroma pair (V,U where `swap`)."""
    c0 = torch.where(swap.view(-1, 1, 1, 1), v, u)
    c1 = torch.where(swap.view(-1, 1, 1, 1), u, v)
    return torch.cat([F.pixel_unshuffle(y, 2), c0, c1], dim=1)


def as_tensor_bytes(x):
    """What the network receives: 10-bit samples, their high byte, scaled by 1/255."""
    q = torch.floor(x.clamp(0, 1) * 1023 + 0.5)
    return torch.floor(q / 4) / 255.0


class Branch(nn.Module):
    """A small U-shaped residual net: `levels` steps down by strided convolutions, doubling the
    channels each time, `depth` convolutions at the lowest scale, and back up by transposed ones.
    The low scales are cheap per pixel and give the wide view that smooth, enlarged content needs."""

    def __init__(self, cin, cout, width, depth, levels=1, dilations=(1,)):
        super().__init__()
        self.head = nn.Conv2d(cin, width, 3, padding=1)
        ch = [width * 2 ** i for i in range(levels + 1)]
        self.down = nn.ModuleList(nn.Conv2d(ch[i], ch[i + 1], 3, stride=2, padding=1) for i in range(levels))
        # One convolution on each way through the intermediate scales, `depth` at the lowest.
        self.enc = nn.ModuleList(nn.Conv2d(ch[i], ch[i], 3, padding=1) for i in range(1, levels))
        # Dilated convolutions widen the view at the lowest scale at no extra cost per pixel.
        dil = [dilations[i % len(dilations)] for i in range(depth)]
        self.body = nn.ModuleList(nn.Conv2d(ch[-1], ch[-1], 3, padding=d, dilation=d) for d in dil)
        self.dec = nn.ModuleList(nn.Conv2d(ch[i], ch[i], 3, padding=1) for i in range(1, levels))
        self.up = nn.ModuleList(nn.ConvTranspose2d(ch[i + 1], ch[i], 2, stride=2) for i in range(levels))
        self.tail = nn.Conv2d(width, cout, 3, padding=1)

    def forward(self, x):
        skips = [F.relu(self.head(x))]
        for i, down in enumerate(self.down):
            d = F.relu(down(skips[-1]))
            if i < len(self.enc):
                d = F.relu(self.enc[i](d))
            skips.append(d)
        d = skips.pop()
        for conv in self.body:
            d = F.relu(conv(d))
        for i in reversed(range(len(self.up))):
            d = F.relu(self.up[i](d)) + skips[i]
            if i > 0:
                d = F.relu(self.dec[i - 1](d))
        return self.tail(d)


class Luma(nn.Module):
    def __init__(self, width, depth, levels=1, dilations=(1,)):
        super().__init__()
        self.net = Branch(4, 4, width, depth, levels, dilations)

    def forward(self, y):
        return y + self.net(y)


class Denoiser(nn.Module):
    def __init__(self, width, depth, levels=1, dilations=(1,)):
        super().__init__()
        self.luma = Luma(width, depth, levels, dilations)
        self.chroma = Branch(6, 2, max(width // 2, 4), 1, levels)

    def forward(self, x):
        return torch.cat([self.luma(x[:, :4]), x[:, 4:] + self.chroma(x)], dim=1)


def enlarge(img, factor):
    """Bicubic enlargement of a 1x3xHxW image, as video scalers and `vaitool synth` do."""
    if factor == 1:
        return img
    size = (int(round(img.shape[2] * factor)), int(round(img.shape[3] * factor)))
    return F.interpolate(img, size=size, mode="bicubic", align_corners=False).clamp(0, 1)


def batch(photos, n, size, gen, max_scale=1.0, max_iso=12800.0):
    """`n` random crops of size x size pixels with enlargement, flips, rotations and exposure changes.

    Video frames are far smoother per pixel than the photographs at their own scale (a 1080p frame of
    a scene holds less detail per pixel than a sharp still), so each crop is enlarged by a factor drawn
    log-uniformly from 1 to `max_scale`."""
    crops = []
    for _ in range(n):
        p = photos[int(torch.randint(len(photos), (1,), generator=gen))]
        factor = float(torch.exp(torch.rand(1, generator=gen) * np.log(max_scale))) if max_scale > 1 else 1.0
        # The source window, with two pixels each side for the filter taps.
        src = size if factor == 1 else min(int(np.ceil(size / factor)) + 4, p.shape[1], p.shape[2])
        top = int(torch.randint(p.shape[1] - src + 1, (1,), generator=gen))
        left = int(torch.randint(p.shape[2] - src + 1, (1,), generator=gen))
        c = p[:, top:top + src, left:left + src]
        if factor != 1:
            c = enlarge(c.unsqueeze(0), max(factor, size / (src - 4)))[0]
            off = (c.shape[1] - size) // 2
            c = c[:, off:off + size, off:off + size]
        c = torch.rot90(c, int(torch.randint(4, (1,), generator=gen)), dims=(1, 2))
        if torch.rand(1, generator=gen) < 0.5:
            c = torch.flip(c, dims=(2,))
        crops.append(c)
    clean = torch.stack(crops)
    # Darker scenes than the photographs: exposure scaled in linear light.
    exposure = 0.25 + 0.75 * torch.rand(n, 1, 1, 1, generator=gen)
    clean = (clean ** GAMMA * exposure) ** (1.0 / GAMMA)
    iso = torch.exp(torch.empty(n).uniform_(np.log(200.0), np.log(max_iso), generator=gen))
    return clean, iso


def make_pair(clean, iso, gen, limited=None, swap=None):
    n = clean.shape[0]
    if limited is None:
        limited = torch.rand(n, generator=gen) < 0.5
    if swap is None:
        swap = torch.rand(n, generator=gen) < 0.5
    noisy = add_noise(clean, iso, gen)
    target = pack(*to_yuv420(clean, limited), swap)
    noisy_yuv = to_yuv420(noisy, limited)
    return as_tensor_bytes(pack(*noisy_yuv, swap)), target, pack(*noisy_yuv, swap)


def psnr(a, b):
    return float(10 * torch.log10(1.0 / F.mse_loss(a, b)))


def validation_rows(model, photos, measure, factor=1, multiple=16):
    """Per ISO of VALIDATION_ISOS, the mean over `photos` of what `measure(model, clean, iso, gen)`
    returns (a few PSNRs), each photo enlarged by `factor` and cropped to a `multiple` of pixels.
    The noise seed is fixed, so runs and models compare on the same noise."""
    gen = torch.Generator().manual_seed(1234)
    rows = []
    model.eval()
    with torch.no_grad():
        for iso in VALIDATION_ISOS:
            sums = 0
            for p in photos:
                clean = enlarge(p.unsqueeze(0), factor)
                clean = clean[..., :clean.shape[2] // multiple * multiple, :clean.shape[3] // multiple * multiple]
                sums = sums + np.array(measure(model, clean, torch.tensor([float(iso)]), gen))
            rows.append((iso, *(sums / len(photos))))
    model.train()
    return rows


def measure_yuv(model, clean, iso, gen):
    """Luma and chroma PSNR of the 10-bit noisy input and the denoised 8-bit output vs clean."""
    flag = torch.tensor([False])
    x, target, noisy = make_pair(clean, iso, gen, flag, flag)
    noisy10 = torch.floor(noisy.clamp(0, 1) * 1023 + 0.5) / 1023
    out = torch.floor(model(x).clamp(0, 1) * 255 + 0.5) * 4 / 1023
    return [psnr(noisy10[:, :4], target[:, :4]), psnr(out[:, :4], target[:, :4]),
            psnr(noisy10[:, 4:], target[:, 4:]), psnr(out[:, 4:], target[:, 4:])]


def validate(model, photos, factor):
    # Whole tensors at every scale of the network: multiples of 16 pixels.
    return validation_rows(model, photos, measure_yuv, factor, 16)


def export(module, channels, path):
    module.eval()
    dummy = torch.zeros(1, channels, 64, 96)
    torch.onnx.export(module, dummy, path, opset_version=11, input_names=["packed"],
                      output_names=["denoised"],
                      dynamic_axes={"packed": {2: "height", 3: "width"}, "denoised": {2: "height", 3: "width"}})


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--steps", type=int, default=8000)
    ap.add_argument("--batch", type=int, default=16)
    ap.add_argument("--patch", type=int, default=64, help="crop size in pixels (multiple of 4)")
    ap.add_argument("--width", type=int, default=12, help="channels of the luma branch's first level")
    ap.add_argument("--depth", type=int, default=2, help="convolutions at the lowest scale")
    ap.add_argument("--levels", type=int, default=1, help="scales below the first")
    ap.add_argument("--max-scale", type=float, default=5.0, help="largest enlargement of a crop")
    ap.add_argument("--max-iso", type=float, default=25600.0, help="highest ISO of the training noise")
    ap.add_argument("--dilation", default="1,2", help="dilations of the lowest-scale convolutions, cycled")
    ap.add_argument("--threads", type=int, default=1)
    ap.add_argument("--out", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "mode1"))
    args = ap.parse_args()

    torch.set_num_threads(args.threads)
    torch.manual_seed(0)
    gen = torch.Generator().manual_seed(0)
    start = time.time()
    train = [load_photo(f) for f in TRAIN_FILES]
    held_out = [load_photo(f) for f in VALIDATION_FILES]

    dilations = tuple(int(d) for d in args.dilation.split(","))
    model = Denoiser(args.width, args.depth, args.levels, dilations)
    print(f"parameters: {sum(p.numel() for p in model.parameters())}")
    opt = torch.optim.Adam(model.parameters(), lr=2e-3)
    sched = torch.optim.lr_scheduler.CosineAnnealingLR(opt, args.steps, eta_min=1e-5)
    for step in range(1, args.steps + 1):
        clean, iso = batch(train, args.batch, args.patch, gen, args.max_scale, args.max_iso)
        x, target, _ = make_pair(clean, iso, gen)
        out = model(x)
        loss = F.l1_loss(out[:, :4], target[:, :4]) + 0.5 * F.l1_loss(out[:, 4:], target[:, 4:])
        opt.zero_grad()
        loss.backward()
        opt.step()
        sched.step()
        if step % 200 == 0 or step == args.steps:
            print(f"step {step}/{args.steps}  loss {loss.item():.5f}  {time.time() - start:.0f}s", flush=True)

    print("validation (held out: " + ", ".join(VALIDATION_FILES) + "), PSNR dB, 10-bit scale")
    for factor in VALIDATION_SCALES:
        print(f"  enlarged x{factor}")
        print("  ISO    luma noisy  luma denoised  chroma noisy  chroma denoised")
        for iso, yn, yd, cn, cd in validate(model, held_out, factor):
            print(f"  {iso:<6} {yn:10.2f} {yd:14.2f} {cn:13.2f} {cd:16.2f}")
    print(f"processor time {time.process_time():.0f}s", flush=True)

    os.makedirs(args.out, exist_ok=True)
    export(model, 6, os.path.join(args.out, "vainr_yuv.onnx"))
    export(model.luma, 4, os.path.join(args.out, "vainr_luma.onnx"))
    print(f"exported to {os.path.normpath(args.out)} in {time.time() - start:.0f}s")


if __name__ == "__main__":
    main()
