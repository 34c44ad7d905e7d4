<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN">
<context>
    <name>ClassModel</name>
    <message>
        <source>row %1</source>
        <translation>第 %1 排</translation>
    </message>
    <message>
        <source>%1, glasses</source>
        <comment>a row</comment>
        <translation>%1，戴眼镜</translation>
    </message>
</context>
<context>
    <name>EnrolDialog</name>
    <message>
        <source>Who is this?</source>
        <translation>这是谁？</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>姓名</translation>
    </message>
    <message>
        <source>Enrol</source>
        <translation>登记</translation>
    </message>
    <message>
        <source>Skip</source>
        <translation>跳过</translation>
    </message>
    <message>
        <source>Done</source>
        <translation>完成</translation>
    </message>
    <message>
        <source>Face %1 of %2</source>
        <translation>第 %1 张人脸，共 %2 张</translation>
    </message>
</context>
<context>
    <name>ExchangeModel</name>
    <message>
        <source>Time</source>
        <translation>时间</translation>
    </message>
    <message>
        <source>What</source>
        <translation>事项</translation>
    </message>
    <message>
        <source>Content</source>
        <translation>内容</translation>
    </message>
</context>
<context>
    <name>ImportDialog</name>
    <message>
        <source>Looking for the faces in the pictures…</source>
        <translation>正在照片中寻找人脸…</translation>
    </message>
    <message>
        <source>Import portraits</source>
        <translation>导入照片</translation>
    </message>
    <message>
        <source>File</source>
        <translation>文件</translation>
    </message>
    <message>
        <source>Student</source>
        <translation>学生</translation>
    </message>
    <message>
        <source>Result</source>
        <translation>结果</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>停止</translation>
    </message>
    <message numerus="yes">
        <source>All %n student(s) were enrolled.</source>
        <translation>
            <numerusform>全部 %n 名学生已登记。</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 of %2 were enrolled; the list tells why the others were not.</source>
        <translation>已登记 %1 名，共 %2 名；列表说明其余未登记的原因。</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>关闭</translation>
    </message>
    <message>
        <source>enrolled</source>
        <translation>已登记</translation>
    </message>
</context>
<context>
    <name>LegendBar</name>
    <message>
        <source>Show or hide: %1</source>
        <translation>显示或隐藏：%1</translation>
    </message>
</context>
<context>
    <name>LessonControl</name>
    <message>
        <source>A student of this name is enrolled already.</source>
        <translation>已有同名学生。</translation>
    </message>
    <message>
        <source>The recogniser did not take this face. A sharp picture that looks into the camera helps.</source>
        <translation>识别器没有接受这张人脸。请用正对镜头的清晰照片。</translation>
    </message>
</context>
<context>
    <name>LogPanel</name>
    <message>
        <source>Filter</source>
        <translation>筛选</translation>
    </message>
    <message>
        <source>Requests and events</source>
        <translation>请求与事件</translation>
    </message>
    <message>
        <source>Copy as JSON</source>
        <translation>复制为 JSON</translation>
    </message>
</context>
<context>
    <name>MainWindow</name>
    <message>
        <source>Open</source>
        <translation>打开</translation>
    </message>
    <message>
        <source>Opens the service: it looks for the camera</source>
        <translation>打开服务：服务开始寻找摄像头</translation>
    </message>
    <message>
        <source>Ctrl+O</source>
        <translation>Ctrl+O</translation>
    </message>
    <message>
        <source>Load</source>
        <translation>加载</translation>
    </message>
    <message>
        <source>Opens the service if need be and loads its recognisers</source>
        <translation>必要时打开服务，并加载识别器</translation>
    </message>
    <message>
        <source>Ctrl+L</source>
        <translation>Ctrl+L</translation>
    </message>
    <message>
        <source>Find faces</source>
        <translation>寻找人脸</translation>
    </message>
    <message>
        <source>Looks once for all faces in the picture</source>
        <translation>在画面中寻找一次所有人脸</translation>
    </message>
    <message>
        <source>Ctrl+F</source>
        <translation>Ctrl+F</translation>
    </message>
    <message>
        <source>Name faces…</source>
        <translation>人脸命名…</translation>
    </message>
    <message>
        <source>Asks for the names of unknown faces, one by one</source>
        <translation>逐一询问未知人脸的姓名</translation>
    </message>
    <message>
        <source>Ctrl+E</source>
        <translation>Ctrl+E</translation>
    </message>
    <message>
        <source>Hands</source>
        <translation>举手</translation>
    </message>
    <message>
        <source>Watches for raised hands</source>
        <translation>观察举手</translation>
    </message>
    <message>
        <source>Ctrl+H</source>
        <translation>Ctrl+H</translation>
    </message>
    <message>
        <source>Attention</source>
        <translation>专注度</translation>
    </message>
    <message>
        <source>Watches the attention of the class, and smiles</source>
        <translation>观察全班专注度和微笑</translation>
    </message>
    <message>
        <source>Follow</source>
        <translation>跟踪</translation>
    </message>
    <message>
        <source>Follows the students who are selected in the list</source>
        <translation>跟踪列表中选中的学生</translation>
    </message>
    <message>
        <source>Ctrl+T</source>
        <translation>Ctrl+T</translation>
    </message>
    <message>
        <source>Game</source>
        <translation>体感游戏</translation>
    </message>
    <message>
        <source>Plays the body game with the students who are selected in the list</source>
        <translation>让列表中选中的学生玩体感游戏</translation>
    </message>
    <message>
        <source>Ctrl+G</source>
        <translation>Ctrl+G</translation>
    </message>
    <message>
        <source>Rows, glasses</source>
        <translation>座位与眼镜</translation>
    </message>
    <message>
        <source>Finds out once who sits where and wears glasses</source>
        <translation>查看一次谁坐在第几排、谁戴眼镜</translation>
    </message>
    <message>
        <source>Ctrl+B</source>
        <translation>Ctrl+B</translation>
    </message>
    <message>
        <source>Record</source>
        <translation>录制</translation>
    </message>
    <message>
        <source>Records the lesson</source>
        <translation>录制课堂</translation>
    </message>
    <message>
        <source>Ctrl+R</source>
        <translation>Ctrl+R</translation>
    </message>
    <message>
        <source>Record into a folder…</source>
        <translation>录制到文件夹…</translation>
    </message>
    <message>
        <source>Records the lesson into a folder of your choice</source>
        <translation>把课堂录制到您选择的文件夹</translation>
    </message>
    <message>
        <source>Ctrl+Shift+R</source>
        <translation>Ctrl+Shift+R</translation>
    </message>
    <message>
        <source>Show the recording</source>
        <translation>显示录像</translation>
    </message>
    <message>
        <source>Opens the folder of the recording</source>
        <translation>打开录像所在文件夹</translation>
    </message>
    <message>
        <source>Ctrl+Shift+O</source>
        <translation>Ctrl+Shift+O</translation>
    </message>
    <message>
        <source>Recording</source>
        <translation>录制中</translation>
    </message>
    <message>
        <source>The recording is the file

%1</source>
        <translation>录像文件是

%1</translation>
    </message>
    <message>
        <source>Reset…</source>
        <translation>重置…</translation>
    </message>
    <message>
        <source>Ends everything and forgets all students</source>
        <translation>结束一切并清除所有学生</translation>
    </message>
    <message>
        <source>Ctrl+Shift+Backspace</source>
        <translation>Ctrl+Shift+Backspace</translation>
    </message>
    <message>
        <source>Import portraits…</source>
        <translation>导入照片…</translation>
    </message>
    <message>
        <source>Enrols a folder of portraits</source>
        <translation>登记一个文件夹中的照片</translation>
    </message>
    <message>
        <source>Ctrl+I</source>
        <translation>Ctrl+I</translation>
    </message>
    <message>
        <source>Refresh the students</source>
        <translation>刷新学生</translation>
    </message>
    <message>
        <source>Fetches the students&apos; best pictures</source>
        <translation>取得学生的最佳照片</translation>
    </message>
    <message>
        <source>F5</source>
        <translation>F5</translation>
    </message>
    <message>
        <source>Keep looking for faces</source>
        <translation>持续寻找人脸</translation>
    </message>
    <message>
        <source>Looks for all faces every few seconds</source>
        <translation>每隔几秒寻找一次所有人脸</translation>
    </message>
    <message>
        <source>Ctrl+Shift+F</source>
        <translation>Ctrl+Shift+F</translation>
    </message>
    <message>
        <source>Whole picture</source>
        <translation>完整画面</translation>
    </message>
    <message>
        <source>Ctrl+1</source>
        <translation>Ctrl+1</translation>
    </message>
    <message>
        <source>Fill the window</source>
        <translation>填满窗口</translation>
    </message>
    <message>
        <source>Ctrl+2</source>
        <translation>Ctrl+2</translation>
    </message>
    <message>
        <source>Pixel by pixel</source>
        <translation>原始像素</translation>
    </message>
    <message>
        <source>Ctrl+3</source>
        <translation>Ctrl+3</translation>
    </message>
    <message>
        <source>Mirrored</source>
        <translation>镜像</translation>
    </message>
    <message>
        <source>Ctrl+M</source>
        <translation>Ctrl+M</translation>
    </message>
    <message>
        <source>Turn by 90°</source>
        <translation>旋转 90°</translation>
    </message>
    <message>
        <source>Ctrl+Shift+T</source>
        <translation>Ctrl+Shift+T</translation>
    </message>
    <message>
        <source>Larger</source>
        <translation>放大</translation>
    </message>
    <message>
        <source>Ctrl++</source>
        <translation>Ctrl++</translation>
    </message>
    <message>
        <source>Smaller</source>
        <translation>缩小</translation>
    </message>
    <message>
        <source>Ctrl+-</source>
        <translation>Ctrl+-</translation>
    </message>
    <message>
        <source>Whole picture again</source>
        <translation>恢复完整画面</translation>
    </message>
    <message>
        <source>Ctrl+0</source>
        <translation>Ctrl+0</translation>
    </message>
    <message>
        <source>Buttons</source>
        <translation>按钮</translation>
    </message>
    <message>
        <source>&amp;Service</source>
        <translation>服务(&amp;S)</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>退出</translation>
    </message>
    <message>
        <source>S&amp;tudents</source>
        <translation>学生(&amp;T)</translation>
    </message>
    <message>
        <source>&amp;Lesson</source>
        <translation>课堂(&amp;L)</translation>
    </message>
    <message>
        <source>&amp;View</source>
        <translation>视图(&amp;V)</translation>
    </message>
    <message>
        <source>Colours of the desktop</source>
        <translation>跟随桌面颜色</translation>
    </message>
    <message>
        <source>Light</source>
        <translation>浅色</translation>
    </message>
    <message>
        <source>Dark</source>
        <translation>深色</translation>
    </message>
    <message>
        <source>Class viewer</source>
        <translation>课堂查看器</translation>
    </message>
    <message>
        <source>The camera sends no picture yet</source>
        <translation>摄像头还没有画面</translation>
    </message>
    <message>
        <source>No camera</source>
        <translation>没有摄像头</translation>
    </message>
    <message>
        <source>Start a camera program on this computer, for example

camerafeed /dev/video0

for a camera that is plugged in, or

camerafeed --demo

for a class composed of photographs. The picture appears here by itself. Camera, service and viewer need the same temporary folder: here it is %1.</source>
        <translation>请在本机启动摄像头程序，例如

camerafeed /dev/video0

用于已连接的摄像头，或

camerafeed --demo

用于由照片合成的课堂。画面会自动出现。摄像头、服务和查看器须使用同一个临时文件夹：此处为 %1。</translation>
    </message>
    <message>
        <source>hands</source>
        <translation>举手</translation>
    </message>
    <message>
        <source>attention</source>
        <translation>专注度</translation>
    </message>
    <message>
        <source>following</source>
        <translation>跟踪</translation>
    </message>
    <message>
        <source>following %1</source>
        <translation>跟踪 %1</translation>
    </message>
    <message>
        <source>game</source>
        <translation>体感游戏</translation>
    </message>
    <message>
        <source>Service: %1</source>
        <translation>服务：%1</translation>
    </message>
    <message>
        <source>Camera: none</source>
        <translation>摄像头：无</translation>
    </message>
    <message>
        <source>Camera: has stood still for %1</source>
        <translation>摄像头：画面停止已 %1</translation>
    </message>
    <message>
        <source>Nothing runs</source>
        <translation>没有正在运行的分析</translation>
    </message>
    <message>
        <source>Runs: %1</source>
        <translation>运行中：%1</translation>
    </message>
    <message>
        <source>Recording into</source>
        <translation>正在录制到</translation>
    </message>
    <message>
        <source>The service is not running, so only the camera is shown. Start AIService on this computer; the viewer connects by itself.</source>
        <translation>服务没有运行，因此只显示摄像头画面。请在本机启动 AIService；查看器会自动连接。</translation>
    </message>
    <message>
        <source>The service does not answer. If that lasts, end it and start it anew.</source>
        <translation>服务没有响应。如果一直如此，请结束它并重新启动。</translation>
    </message>
    <message>
        <source>Step 1: open the service and load its recognisers. That takes some seconds.</source>
        <translation>第一步：打开服务并加载识别器，需要几秒钟。</translation>
    </message>
    <message>
        <source>Step 1: load the recognisers. That takes some seconds.</source>
        <translation>第一步：加载识别器，需要几秒钟。</translation>
    </message>
    <message>
        <source>Step 2: find the faces in the picture, or import portraits.</source>
        <translation>第二步：在画面中寻找人脸，或导入照片。</translation>
    </message>
    <message>
        <source>Step 2: click a face in the picture and type the name, or name all of them in turn.</source>
        <translation>第二步：点击画面中的人脸并输入姓名，或依次为所有人脸命名。</translation>
    </message>
    <message>
        <source>Step 3: watch raised hands or the attention of the class.</source>
        <translation>第三步：观察举手或全班专注度。</translation>
    </message>
    <message>
        <source>Click a student in the picture for more. The lesson can be recorded.</source>
        <translation>点击画面中的学生可进行更多操作。也可以录制课堂。</translation>
    </message>
    <message>
        <source>Name faces</source>
        <translation>人脸命名</translation>
    </message>
    <message>
        <source>No unknown face was found in the picture. Press “Find faces” first.</source>
        <translation>画面中没有未知人脸。请先按“寻找人脸”。</translation>
    </message>
    <message>
        <source>A folder of portraits, each file named after its student</source>
        <translation>照片文件夹，每个文件以学生姓名命名</translation>
    </message>
    <message>
        <source>Import portraits</source>
        <translation>导入照片</translation>
    </message>
    <message>
        <source>There are no pictures in %1.</source>
        <translation>%1 中没有照片。</translation>
    </message>
    <message>
        <source>The new face of %1</source>
        <translation>%1 的新人脸</translation>
    </message>
    <message>
        <source>Pictures (*.jpg *.jpeg *.png *.bmp)</source>
        <translation>图片 (*.jpg *.jpeg *.png *.bmp)</translation>
    </message>
    <message>
        <source>New face</source>
        <translation>新人脸</translation>
    </message>
    <message>
        <source>Replace the face of %1? The old pictures are forgotten.</source>
        <translation>替换 %1 的人脸吗？旧照片将被清除。</translation>
    </message>
    <message>
        <source>Stop following</source>
        <translation>停止跟踪</translation>
    </message>
    <message>
        <source>Rename…</source>
        <translation>重命名…</translation>
    </message>
    <message>
        <source>New face…</source>
        <translation>新人脸…</translation>
    </message>
    <message>
        <source>Delete…</source>
        <translation>删除…</translation>
    </message>
    <message>
        <source>Where the recording goes</source>
        <translation>录像保存位置</translation>
    </message>
    <message>
        <source>Reset</source>
        <translation>重置</translation>
    </message>
    <message>
        <source>End all analyses and forget all students? This cannot be taken back, and nothing is stored until the service is closed and opened again.</source>
        <translation>结束所有分析并清除所有学生吗？此操作无法撤销，而且在服务关闭并重新打开之前不会保存任何内容。</translation>
    </message>
    <message>
        <source>Close the service</source>
        <translation>关闭服务</translation>
    </message>
    <message>
        <source>Ends everything; the service forgets its students</source>
        <translation>结束一切；服务清除学生</translation>
    </message>
    <message>
        <source>Camera: %1 × %2, %3 frames/s, %4 ms old</source>
        <translation>摄像头：%1 × %2，%3 帧/秒，%4 毫秒前</translation>
    </message>
    <message>
        <source>Close the service…</source>
        <translation>关闭服务…</translation>
    </message>
    <message>
        <source>Ctrl+D</source>
        <translation>Ctrl+D</translation>
    </message>
    <message>
        <source>St&amp;udents</source>
        <translation>学生(&amp;U)</translation>
    </message>
    <message>
        <source>L&amp;og</source>
        <translation>日志(&amp;O)</translation>
    </message>
    <message>
        <source>The lesson is being recorded.</source>
        <translation>课堂正在录制。</translation>
    </message>
    <message>
        <source>The lesson is being recorded into %1.</source>
        <translation>课堂正在录制到 %1。</translation>
    </message>
    <message>
        <source>The recording is the file %1.</source>
        <translation>录像文件是 %1。</translation>
    </message>
    <message>
        <source>End all analyses and the recording, and forget all students? This cannot be taken back.</source>
        <translation>结束所有分析和录制，并清除所有学生吗？此操作无法撤销。</translation>
    </message>
    <message>
        <source>This still runs: %1. It ends when the viewer is closed, also for other programs.</source>
        <translation>仍在运行：%1。关闭查看器后会结束，对其他程序也是如此。</translation>
    </message>
    <message>
        <source>The recording goes on when the viewer is closed.</source>
        <translation>关闭查看器后录制会继续。</translation>
    </message>
    <message>
        <source>Close all the same?</source>
        <translation>仍要关闭吗？</translation>
    </message>
</context>
<context>
    <name>Overlay</name>
    <message>
        <source>Camera picture with what the service has told</source>
        <translation>摄像头画面与服务告知的内容</translation>
    </message>
    <message>
        <source>The picture has stood still for %1</source>
        <translation>画面停止已 %1</translation>
    </message>
    <message>
        <source>Nobody known. Click to give this face a name.</source>
        <translation>未知人脸。点击为其命名。</translation>
    </message>
    <message>
        <source>%1: click for more</source>
        <translation>%1：点击查看更多</translation>
    </message>
    <message>
        <source>hand up</source>
        <translation>举手</translation>
    </message>
    <message>
        <source>smiles</source>
        <translation>微笑</translation>
    </message>
    <message>
        <source>%1 (%2)</source>
        <comment>a name and what is known</comment>
        <translation>%1（%2）</translation>
    </message>
</context>
<context>
    <name>QPlatformTheme</name>
    <message>
        <source>&amp;Yes</source>
        <translation>是(&amp;Y)</translation>
    </message>
    <message>
        <source>&amp;No</source>
        <translation>否(&amp;N)</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>确定</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>取消</translation>
    </message>
</context>
<context>
    <name>ServiceLink</name>
    <message>
        <source>done</source>
        <translation>完成</translation>
    </message>
</context>
<context>
    <name>StudentPanel</name>
    <message>
        <source>Nobody is enrolled yet.

Press “Find faces”, then click a face in the picture and type the name. Or import a folder of portraits whose files are named after the students.</source>
        <translation>还没有登记任何学生。

按“寻找人脸”，然后点击画面中的人脸并输入姓名。或导入以学生姓名命名的照片文件夹。</translation>
    </message>
    <message>
        <source>Name faces…</source>
        <translation>人脸命名…</translation>
    </message>
    <message>
        <source>Goes through the faces that nobody knows, one by one</source>
        <translation>逐一处理未知人脸</translation>
    </message>
    <message>
        <source>Import…</source>
        <translation>导入…</translation>
    </message>
    <message>
        <source>Enrols a folder of portraits</source>
        <translation>登记一个文件夹中的照片</translation>
    </message>
    <message>
        <source>Rename…</source>
        <translation>重命名…</translation>
    </message>
    <message>
        <source>Gives the selected student another name (F2)</source>
        <translation>为选中的学生改名 (F2)</translation>
    </message>
    <message>
        <source>New face…</source>
        <translation>新人脸…</translation>
    </message>
    <message>
        <source>Takes a picture file as the selected student&apos;s face</source>
        <translation>用图片文件作为选中学生的人脸</translation>
    </message>
    <message>
        <source>Delete…</source>
        <translation>删除…</translation>
    </message>
    <message>
        <source>Forgets the selected student (Del)</source>
        <translation>清除选中的学生 (Del)</translation>
    </message>
    <message>
        <source>Students</source>
        <translation>学生</translation>
    </message>
    <message numerus="yes">
        <source>%n student(s)</source>
        <translation>
            <numerusform>%n 名学生</numerusform>
        </translation>
    </message>
    <message>
        <source>seen now</source>
        <translation>现在看到</translation>
    </message>
    <message>
        <source>not seen yet</source>
        <translation>尚未看到</translation>
    </message>
    <message>
        <source>seen %1 ago</source>
        <translation>%1前看到</translation>
    </message>
    <message>
        <source>picture %1 %</source>
        <translation>照片 %1 %</translation>
    </message>
    <message>
        <source>Rename</source>
        <translation>重命名</translation>
    </message>
    <message>
        <source>New name of %1:</source>
        <translation>%1 的新姓名：</translation>
    </message>
    <message>
        <source>There is a student named %1 already.</source>
        <translation>已有名为 %1 的学生。</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>删除</translation>
    </message>
    <message>
        <source>Forget %1 with all pictures? This cannot be taken back.</source>
        <translation>清除 %1 及其所有照片吗？此操作无法撤销。</translation>
    </message>
</context>
<context>
    <name>TimelineStrip</name>
    <message>
        <source>The last minutes</source>
        <translation>最近几分钟</translation>
    </message>
    <message>
        <source>now</source>
        <translation>现在</translation>
    </message>
    <message>
        <source>−%1 min</source>
        <translation>−%1 分</translation>
    </message>
    <message>
        <source>Attention</source>
        <translation>专注度</translation>
    </message>
    <message>
        <source>Hands</source>
        <translation>举手</translation>
    </message>
    <message>
        <source>Video</source>
        <translation>视频</translation>
    </message>
    <message>
        <source>Attention %1</source>
        <translation>专注度 %1</translation>
    </message>
    <message>
        <source>Hands up: %1</source>
        <translation>举手：%1</translation>
    </message>
</context>
<context>
    <name>words</name>
    <message>
        <source>The service is closed. Press “Open” first.</source>
        <translation>服务已关闭。请先按“打开”。</translation>
    </message>
    <message>
        <source>The recognisers are not loaded yet. Press “Load” first.</source>
        <translation>识别器尚未加载。请先按“加载”。</translation>
    </message>
    <message>
        <source>This runs already; another program may have started it.</source>
        <translation>已在运行；可能由其他程序启动。</translation>
    </message>
    <message>
        <source>This does not run any more: it ended when a program left the service.</source>
        <translation>已不再运行：某个程序离开服务时它就结束了。</translation>
    </message>
    <message>
        <source>The service cannot do this now: %1</source>
        <translation>服务现在无法执行：%1</translation>
    </message>
    <message>
        <source>Open the service</source>
        <translation>打开服务</translation>
    </message>
    <message>
        <source>Close the service</source>
        <translation>关闭服务</translation>
    </message>
    <message>
        <source>Ask for the state</source>
        <translation>查询状态</translation>
    </message>
    <message>
        <source>Load the recognisers</source>
        <translation>加载识别器</translation>
    </message>
    <message>
        <source>Look for faces</source>
        <translation>寻找人脸</translation>
    </message>
    <message>
        <source>Enrol</source>
        <translation>登记</translation>
    </message>
    <message>
        <source>Replace a face</source>
        <translation>替换人脸</translation>
    </message>
    <message>
        <source>Rename a student</source>
        <translation>学生改名</translation>
    </message>
    <message>
        <source>Delete a student</source>
        <translation>删除学生</translation>
    </message>
    <message>
        <source>Fetch the students&apos; pictures</source>
        <translation>取得学生照片</translation>
    </message>
    <message>
        <source>Reset</source>
        <translation>重置</translation>
    </message>
    <message>
        <source>Start watching hands</source>
        <translation>开始观察举手</translation>
    </message>
    <message>
        <source>Stop watching hands</source>
        <translation>停止观察举手</translation>
    </message>
    <message>
        <source>Start watching attention</source>
        <translation>开始观察专注度</translation>
    </message>
    <message>
        <source>Stop watching attention</source>
        <translation>停止观察专注度</translation>
    </message>
    <message>
        <source>Follow a student</source>
        <translation>跟踪学生</translation>
    </message>
    <message>
        <source>Stop following</source>
        <translation>停止跟踪</translation>
    </message>
    <message>
        <source>Start the body game</source>
        <translation>开始体感游戏</translation>
    </message>
    <message>
        <source>Stop the body game</source>
        <translation>停止体感游戏</translation>
    </message>
    <message>
        <source>Look for rows and glasses</source>
        <translation>查看座位与眼镜</translation>
    </message>
    <message>
        <source>Start recording</source>
        <translation>开始录制</translation>
    </message>
    <message>
        <source>Stop recording</source>
        <translation>停止录制</translation>
    </message>
    <message>
        <source>Faces</source>
        <translation>人脸</translation>
    </message>
    <message>
        <source>Attention</source>
        <translation>专注度</translation>
    </message>
    <message>
        <source>Raised hands</source>
        <translation>举手</translation>
    </message>
    <message>
        <source>Followed student</source>
        <translation>被跟踪的学生</translation>
    </message>
    <message>
        <source>Regions of the game</source>
        <translation>游戏区域</translation>
    </message>
    <message>
        <source>Game</source>
        <translation>体感游戏</translation>
    </message>
    <message>
        <source>Rows and glasses</source>
        <translation>座位与眼镜</translation>
    </message>
    <message>
        <source>Enrolled</source>
        <translation>已登记</translation>
    </message>
    <message>
        <source>Smile</source>
        <translation>微笑</translation>
    </message>
    <message>
        <source>Recording</source>
        <translation>录制中</translation>
    </message>
    <message>
        <source>Pictures of the students</source>
        <translation>学生照片</translation>
    </message>
    <message>
        <source>Video</source>
        <translation>视频</translation>
    </message>
    <message>
        <source>The service has not answered in time. It may be busy: wait a little and try again.</source>
        <translation>服务没有及时回答。它可能很忙：请稍后再试。</translation>
    </message>
    <message>
        <source>The connection to the service was lost. The viewer connects again by itself.</source>
        <translation>与服务的连接已断开。查看器会自动重新连接。</translation>
    </message>
    <message>
        <source>The service sees no camera yet. Start the camera, wait a second and try again.</source>
        <translation>服务还没有看到摄像头。请启动摄像头，等一秒后再试。</translation>
    </message>
    <message>
        <source>The new face was refused, and the old one is gone: enrol the student again.</source>
        <translation>新人脸被拒绝，旧人脸也已清除：请重新登记该学生。</translation>
    </message>
    <message>
        <source>Something is missing: a name, or a face.</source>
        <translation>缺少内容：姓名或人脸。</translation>
    </message>
    <message>
        <source>The service does not know where this student is. Watch hands or attention until the student has been seen, then try again.</source>
        <translation>服务不知道该学生在哪里。请先观察举手或专注度，看到该学生后再试。</translation>
    </message>
    <message>
        <source>Nobody is enrolled under this name. Refresh the list of students.</source>
        <translation>没有以此姓名登记的学生。请刷新学生列表。</translation>
    </message>
    <message>
        <source>The analysis could not be made. Load the recognisers again.</source>
        <translation>无法建立分析。请重新加载识别器。</translation>
    </message>
    <message>
        <source>A recogniser could not be loaded: a file is missing in the model folder. The log of the service tells which.</source>
        <translation>有识别器无法加载：模型文件夹中缺少文件。服务日志说明是哪一个。</translation>
    </message>
    <message>
        <source>A recogniser failed. Try again; the log of the service tells more.</source>
        <translation>识别器出错。请再试；服务日志有更多说明。</translation>
    </message>
    <message>
        <source>This service does not know the request: it is older than the viewer.</source>
        <translation>服务不认识此请求：它比查看器旧。</translation>
    </message>
    <message>
        <source>The service answers: %1</source>
        <translation>服务回答：%1</translation>
    </message>
    <message>
        <source>closed</source>
        <translation>已关闭</translation>
    </message>
    <message>
        <source>open</source>
        <translation>已打开</translation>
    </message>
    <message>
        <source>ready</source>
        <translation>就绪</translation>
    </message>
    <message>
        <source>does not answer</source>
        <translation>没有响应</translation>
    </message>
    <message>
        <source>not running</source>
        <translation>未运行</translation>
    </message>
    <message>
        <source>attentive</source>
        <translation>专注</translation>
    </message>
    <message>
        <source>partly</source>
        <translation>一般</translation>
    </message>
    <message>
        <source>elsewhere</source>
        <translation>走神</translation>
    </message>
    <message>
        <source>Faces and names</source>
        <translation>人脸与姓名</translation>
    </message>
    <message>
        <source>Bodies</source>
        <translation>身体</translation>
    </message>
    <message>
        <source>Smiles</source>
        <translation>微笑</translation>
    </message>
    <message>
        <source>Followed</source>
        <translation>被跟踪</translation>
    </message>
    <message>
        <source>now</source>
        <translation>现在</translation>
    </message>
    <message>
        <source>%1 s</source>
        <translation>%1 秒</translation>
    </message>
    <message>
        <source>%1 min</source>
        <translation>%1 分</translation>
    </message>
    <message>
        <source>This file is not a picture.</source>
        <translation>此文件不是图片。</translation>
    </message>
    <message>
        <source>No face was found in this picture.</source>
        <translation>此图片中没有找到人脸。</translation>
    </message>
    <message>
        <source>Faces cannot be found in files: the package opencv-data is not installed.</source>
        <translation>无法在文件中寻找人脸：未安装软件包 opencv-data。</translation>
    </message>
</context>
</TS>
